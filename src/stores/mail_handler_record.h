// One row of the mail handlers store: a program the mail server runs on the
// messages of one recipient address in one of its queues.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct MailHandlerRecord {
    std::int32_t priority = 0;
    std::int32_t type = 0;
    std::int32_t queue = 0;
    std::string name;
    std::string address;  // stored lower case
    std::string executable;
    std::optional<std::string> context;  // written as "none" when missing
    bool protect_on_restore = false;     // the "protected" column
    bool enabled = false;
};

using MailHandlerList = std::vector<MailHandlerRecord>;

// The context a record is stored with.
std::string stored_handler_context(const MailHandlerRecord& record);
