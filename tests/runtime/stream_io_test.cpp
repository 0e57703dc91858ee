// Whole-stream reading and copying.
#include "runtime/stream_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "runtime/logged.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class StreamIoTest : public SandboxTest {
protected:
    std::string binary_text(std::size_t size) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            text[i] = static_cast<char>((i * 131 + 7) % 256);
        return text;
    }
};

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileClose>;

TEST_F(StreamIoTest, ReadAllReturnsEverySize) {
    const std::string path = scratch_dir() + "/input";
    for (std::size_t size : {0, 1, 1022, 1023, 1024, 2047, 2048, 100000}) {
        const std::string content = binary_text(size);
        write_file(path, content);
        const File file(std::fopen(path.c_str(), "r"));
        ASSERT_TRUE(file);
        const auto read = read_all(file.get());
        ASSERT_TRUE(read.has_value()) << size;
        EXPECT_EQ(read->size(), size);
        EXPECT_EQ(*read, content) << size;
    }
}

TEST_F(StreamIoTest, ReadAllReadsWhatIsLeftOfAPipe) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const std::string content = "{\"domain\": \"example.test\"}\n";
    ASSERT_EQ(write(fds[1], content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(fds[1]);
    const File file(fdopen(fds[0], "r"));
    ASSERT_EQ(std::fgetc(file.get()), '{');
    EXPECT_EQ(read_all(file.get()), content.substr(1));
}

TEST_F(StreamIoTest, ReadAllReportsAReadError) {
    const File file(std::fopen("/tmp", "r"));
    ASSERT_TRUE(file);
    std::optional<std::string> read = "unset";
    const LoggedRun run = run_logged([&] { return read_all(file.get()).has_value() ? 1 : 0; });
    EXPECT_EQ(run.process.status, 0);
    const std::vector<LogRecord> expected{{19, "Unable to read input: Is a directory"}};
    EXPECT_EQ(run.records, expected);
}

TEST_F(StreamIoTest, ReadFileAllReadsAWholeFile) {
    const std::string path = scratch_dir() + "/whole";
    write_file(path, binary_text(5000));
    EXPECT_EQ(read_file_all(path.c_str()), binary_text(5000));
}

TEST_F(StreamIoTest, ReadFileAllOfAMissingFileIsNothing) {
    errno = 0;
    EXPECT_EQ(read_file_all("/tmp/no-such-file"), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(StreamIoTest, CopyFdCopiesEverythingWithoutLimit) {
    const std::string in_path = scratch_dir() + "/in";
    const std::string out_path = scratch_dir() + "/out";
    write_file(in_path, binary_text(20000));
    const int in = open(in_path.c_str(), O_RDONLY);
    const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    EXPECT_EQ(copy_fd(in, out, 0), 0);
    close(in);
    close(out);
    EXPECT_EQ(read_file(out_path), binary_text(20000));
}

TEST_F(StreamIoTest, CopyFdStopsAtTheLimit) {
    const std::string in_path = scratch_dir() + "/in";
    const std::string out_path = scratch_dir() + "/out";
    write_file(in_path, binary_text(20000));
    for (std::size_t limit : {1, 8192, 8193, 19999, 20000, 50000}) {
        const int in = open(in_path.c_str(), O_RDONLY);
        const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        EXPECT_EQ(copy_fd(in, out, limit), 0);
        close(in);
        close(out);
        EXPECT_EQ(read_file(out_path), binary_text(std::min<std::size_t>(limit, 20000))) << limit;
    }
}

TEST_F(StreamIoTest, CopyFdReportsReadAndWriteFailures) {
    const std::string path = scratch_dir() + "/in";
    write_file(path, "data");
    const LoggedRun run = run_logged([&] {
        const int in = open(path.c_str(), O_RDONLY);
        const int full = open("/dev/full", O_WRONLY);
        const int bad_read = copy_fd(-1, full, 0);
        const int bad_write = copy_fd(in, full, 0);
        return bad_read == -1 && bad_write == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.process.status, 0);
    ASSERT_EQ(run.records.size(), 2u);
    EXPECT_EQ(run.records[0], (LogRecord{19, "Unable to read descriptor -1: Bad file descriptor"}));
    EXPECT_EQ(run.records[1].text.substr(0, 26), "Unable to write descriptor");
    EXPECT_NE(run.records[1].text.find(": No space left on device"), std::string::npos);
}

TEST_F(StreamIoTest, CopyStreamCopiesAndFlushes) {
    const std::string in_path = scratch_dir() + "/in";
    const std::string out_path = scratch_dir() + "/out";
    write_file(in_path, binary_text(30000));
    const File in(std::fopen(in_path.c_str(), "r"));
    const File out(std::fopen(out_path.c_str(), "w"));
    EXPECT_EQ(copy_stream(in.get(), out.get()), 0);
    EXPECT_EQ(read_file(out_path), binary_text(30000));
}

TEST_F(StreamIoTest, CopyStreamReportsAFullDevice) {
    const std::string in_path = scratch_dir() + "/in";
    write_file(in_path, binary_text(30000));
    const LoggedRun run = run_logged([&] {
        const File in(std::fopen(in_path.c_str(), "r"));
        const File out(std::fopen("/dev/full", "w"));
        return copy_stream(in.get(), out.get()) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.process.status, 0);
    const std::vector<LogRecord> expected{{19, "Unable to write output: No space left on device"}};
    EXPECT_EQ(run.records, expected);
}

}  // namespace
}  // namespace sorvane::test
