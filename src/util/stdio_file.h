// An owned C stream, for the line-by-line editors.
#pragma once

#include <cstdio>
#include <memory>

#include "runtime/saved_errno.h"

namespace crelm::util {

// Closing on the way out of a failure leaves the failure's errno.
struct StdioCloser {
    void operator()(std::FILE* stream) const {
        const crelm::SavedErrno kept;
        std::fclose(stream);
    }
};

using StdioFile = std::unique_ptr<std::FILE, StdioCloser>;

// fclose's result, for callers that must report a failed close.
inline int close_stream(StdioFile& stream) {
    return stream ? std::fclose(stream.release()) : 0;
}

}  // namespace crelm::util
