#include "stores/mail_handlers_store.h"

#include <utility>

namespace {

std::string& current_path() {
    static std::string path = kDefaultMailHandlersDbPath;
    return path;
}

}  // namespace

const std::string& mail_handlers_db_path() {
    return current_path();
}

void set_mail_handlers_db_path(std::string path) {
    current_path() = std::move(path);
}
