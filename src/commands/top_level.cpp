#include "commands/top_level.h"

#include <iostream>
#include <typeinfo>

#include "runtime/error_stream.h"
#include "runtime/errors.h"

namespace crelm::mail::sorvane_commands {

int run_with_top_level_handling(const std::function<int()>& body) {
    try {
        return body();
    } catch (const crelm::CrelmUtilException& e) {
        std::cout << e.what() << std::endl;
        std::cerr << e.what() << std::endl;
        return 1;
    } catch (const std::exception& e) {
        auto& out = crelm::error_stream();
        out << "Fatal error: " << crelm::demangled_type_name(typeid(e).name()) << "(" << e.what() << ")" << std::endl;
        if (const auto* traceback = dynamic_cast<const crelm::Traceback*>(&e))
            traceback->print(out) << std::flush;
        return 1;
    } catch (...) {
        crelm::error_stream() << "UNSPECIFIED ERROR OCCURED" << std::endl;
        return 2;
    }
}

}  // namespace crelm::mail::sorvane_commands
