#include "runtime/idna_call.h"

#include <idna.h>

#include <cstdlib>
#include <memory>

#include "runtime/idn.h"

namespace {

struct FreeWithC {
    void operator()(char* text) const { std::free(text); }
};

}  // namespace

IdnaResult call_idna(const std::string& name, IdnaDirection direction) {
    if (name.find('\0') != std::string::npos)
        return {kIdnaNonLdh, std::nullopt};
    char* raw = nullptr;
    const int status = direction == IdnaDirection::ToAscii ? idna_to_ascii_8z(name.c_str(), &raw, 0)
                                                           : idna_to_unicode_8z8z(name.c_str(), &raw, 0);
    const std::unique_ptr<char, FreeWithC> owned(raw);
    IdnaResult result{status, std::nullopt};
    if (owned)
        result.text = std::string(owned.get());
    return result;
}
