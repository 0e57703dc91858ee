// A text of gigabytes for the tests of length limits: a short head, then one
// byte repeated. Its memory is one 2 MiB page-cache block mapped again and
// again, so the text costs no more than that block however long it is:
// writing gigabytes of fresh anonymous pages took the suite tens of seconds
// per test on a virtual machine, in page faults alone.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sorvane::test {

class RepeatedText {
public:
    RepeatedText(const std::string& head, char repeated, std::size_t repeated_count);
    ~RepeatedText();
    RepeatedText(const RepeatedText&) = delete;
    RepeatedText& operator=(const RepeatedText&) = delete;

    std::string_view view() const { return {data_, size_}; }

private:
    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t mapped_ = 0;
};

}  // namespace sorvane::test
