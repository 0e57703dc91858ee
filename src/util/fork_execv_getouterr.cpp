#include "util/process.h"

#include "runtime/log.h"
#include "util/child_output.h"
#include "util/child_wait.h"
#include "util/unique_fd.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

using crelm::util::ChildEnd;
using crelm::util::UniqueFd;

namespace {

struct OutputPipe {
    UniqueFd read_end;
    UniqueFd write_end;
};

// Buffers start at 4096 bytes, grow by 4096 while small and double after.
std::size_t grown_capacity(std::size_t capacity) {
    if (capacity < 4096)
        return 4096;
    return capacity < 4097 ? capacity + 4096 : capacity * 2;
}

void append_collected(std::string& collected, const char* data, std::size_t length) {
    try {
        std::size_t capacity = collected.capacity();
        while (collected.size() + length > capacity)
            capacity = grown_capacity(capacity);
        collected.reserve(capacity);
        collected.append(data, length);
    } catch (const std::bad_alloc&) {
        report_error(1, 1, "Cannot allocate memory");
    }
}

OutputPipe make_pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        report_error(1, 1, "fork_execv_getouterr: pipe() failed");
    OutputPipe made{UniqueFd(ends[0]), UniqueFd(ends[1])};
    const int flags = ::fcntl(ends[0], F_GETFL);
    if (flags < 0 || ::fcntl(ends[0], F_SETFL, flags | O_NONBLOCK) != 0)
        report_error(1, 1, "fork_execv_getouterr: fcntl(O_NONBLOCK) failed");
    return made;
}

crelm::util::ChildOutput collected_into(const OutputPipe& pipe, std::string& collected) {
    return {pipe.read_end.get(), 4096,
            [&collected](const char* data, std::size_t length) { append_collected(collected, data, length); }};
}

}  // namespace

int fork_execv_getouterr(std::string& out, std::string& err, const std::string& path, const ArgList& argv) {
    out.clear();
    err.clear();
    OutputPipe out_pipe = make_pipe();
    OutputPipe err_pipe = make_pipe();
    const pid_t pid = fork_execv(path, argv, kNoDescriptor, out_pipe.write_end.get(), err_pipe.write_end.get());
    out_pipe.write_end.reset();
    err_pipe.write_end.reset();
    std::vector<crelm::util::ChildOutput> outputs{collected_into(out_pipe, out), collected_into(err_pipe, err)};
    const ChildEnd end = crelm::util::collect_until_end(pid, outputs);
    return crelm::util::child_end_logged(pid, end, path.c_str());
}
