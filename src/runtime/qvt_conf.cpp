#include "runtime/qvt_conf.h"

#include <optional>
#include <string>

#include "runtime/log.h"
#include "runtime/qvt_conf_file.h"

namespace {

// The file's definitions, once they have been read successfully.
std::optional<QvtConfSet>& loaded_conf() {
    static std::optional<QvtConfSet> conf;
    return conf;
}

const QvtConfSet* conf_from_file() {
    std::optional<QvtConfSet>& conf = loaded_conf();
    if (!conf) {
        QvtConfSet read;
        if (read_qvt_conf_file(kQvtConfPath, read) == 0)
            conf = std::move(read);
    }
    return conf ? &*conf : nullptr;
}

}  // namespace

const char* get_conf_value_by_index(int index) {
    const char* name = qvt_conf_name_at(index);
    if (name == nullptr || index == kQvtConfMaxMarker) {
        log_message(3, "variable index %d is out of the range of compile-time defaults", index);
        return nullptr;
    }
    const QvtConfSet* conf = conf_from_file();
    if (conf != nullptr) {
        const auto found = conf->find(name);
        if (found != conf->end())
            return found->second.c_str();
    }
    return qvt_conf_default_at(index);
}

const char* get_conf_value(std::string_view name) {
    const int index = qvt_conf_index_of(name);
    if (index < 0) {
        log_message(3, "variable '%.*s' was found neither in %s, nor in compile-time defaults",
                    static_cast<int>(name.size()), name.data(), kQvtConfPath);
        return nullptr;
    }
    return get_conf_value_by_index(index);
}
