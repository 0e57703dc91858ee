// A line file held in memory as its lines, for a process that forks many
// short editors of one large file (a batch's commands editing assign).
//
// The table is read once from the file. Each forked editor sees it as it
// stood at the fork (the pages are shared until written) and edits it with
// three kinds of change: a line put on top, a line dropped, a line's text
// replaced. While a log is open, each edit's changes are also written to it
// as one record, in one write; the process that forked the editor then
// replays the records on its own table, so that both hold the same lines
// and the next editor starts from them. A record cut short (an editor
// killed in the middle of writing it) is not replayed, as an edit killed
// before its rename leaves a file as it was.
//
// Only tables that are whole lines each shorter than 4095 bytes are held
// (util/file_str.h judges such a line as one piece); what could make a
// longer line ends the holding first (see util/held_lines.h).
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "util/huge_block.h"
#include "util/line_index.h"
#include "util/unique_fd.h"

namespace crelm::util {

class LineTable {
public:
    // The longest line (newline included) a table holds.
    static constexpr std::size_t kLongestLine = 4095;

    // A table of text, or null when text does not end with a newline (and
    // is not empty) or holds a line of kLongestLine bytes or more.
    static std::unique_ptr<LineTable> from_text(std::string_view text);
    // The same for the whole of the regular file open on fd, from its
    // start; null also when it cannot be read (errno set).
    static std::unique_ptr<LineTable> read_from(int fd);

    LineTable(const LineTable&) = delete;
    LineTable& operator=(const LineTable&) = delete;

    using Id = std::uint32_t;

    // Calls visit for each line (with its newline), top to bottom, until it
    // returns true.
    void for_each(const std::function<bool(Id id, std::string_view line)>& visit) const;
    // The ids of the live lines whose first field (the text before the
    // first ':', or the whole line without its newline) is field, ASCII case
    // aside, in the order of the table, top to bottom. Looked up in an index
    // kept with every change, so that finding a line or a record's key
    // costs no pass over the table.
    std::vector<Id> with_first_field(std::string_view field) const;
    // The ids of the live lines equal to text (given without its newline),
    // top to bottom, found through the same index.
    std::vector<Id> equal_to(std::string_view text) const;
    // The ids of the live lines that begin with a dot (the line that ends
    // qmail's assign), top to bottom.
    std::vector<Id> beginning_with_dot() const;
    // A live line's text, with its newline.
    std::string_view line(Id id) const;
    // Where the line stands, counted from the top (for ordering ids).
    std::size_t position(Id id) const;

    // The whole text, top to bottom.
    std::string text() const;
    // Writes the whole text to fd in blocks, never holding it whole. false
    // (errno set) when a write failed.
    bool write_to(int fd) const;

    // One edit: its changes are applied at once and logged as one record.
    class Edit {
    public:
        explicit Edit(LineTable& table) : table_(table) {}
        // Each text ends with its newline and is shorter than kLongestLine.
        void put_on_top(std::string text) { changes_.push_back({Change::top, 0, std::move(text)}); }
        void drop(Id id) { changes_.push_back({Change::drop, id, {}}); }
        void replace(Id id, std::string text) { changes_.push_back({Change::replace, id, std::move(text)}); }
        // Applies the changes and logs them when a log is open. false (errno
        // set) when the log could not be written; the table is then left as
        // it was.
        bool commit();

    private:
        friend class LineTable;
        enum class Change : char { top = 'T', drop = 'D', replace = 'R', give_up = 'X' };
        struct Step {
            Change change;
            Id id;
            std::string text;
        };
        LineTable& table_;
        std::vector<Step> changes_;
    };

    // Notes (in the log too) that the table no longer stands for the file:
    // the file itself has been given the table's text and is edited from
    // now on. false (errno set) when the log could not be written.
    bool give_up();
    bool given_up() const { return given_up_; }

    // Opens a log (an anonymous memory file, kept open across a fork) for
    // the edits a forked process will make. false (errno set) on failure.
    bool open_log();
    // Closes the log after replaying its whole records on this table: how
    // many edits were replayed, or nullopt (errno set) when it could not be
    // read.
    std::optional<std::size_t> replay_log();

private:
    struct Line {
        const char* data;
        std::uint32_t size;
        bool live;
        std::string_view text() const { return {data, size}; }
    };

    LineTable() = default;
    bool allocate(std::size_t size);
    bool count_lines();
    Line held(Id id) const;
    static std::uint64_t field_hash(std::string_view line);
    void index(Id id, std::string_view line);
    void unindex(Id id, std::string_view line);
    void sort_by_position(std::vector<Id>& ids) const;
    void apply(const Edit::Step& step);
    Line* changed(Id id);
    static std::string encode(const std::vector<Edit::Step>& steps);
    bool apply_record(std::string_view record);

    // The file's text and where each line begins (and the end), each in a
    // huge block (util/huge_block.h).
    HugeBlock text_;
    HugeBlock starts_;
    const char* base_text_ = nullptr;
    std::size_t base_size_ = 0;
    Id base_count_ = 0;                       // the file's lines
    const std::uint32_t* base_starts_ = nullptr;
    std::vector<bool> base_changed_;          // which of them were dropped or replaced
    std::unordered_map<Id, Line> base_changes_;  // and what they became
    std::vector<Line> tops_;                  // lines put on top since, the newest last
    std::deque<std::string> owned_;           // the texts of lines put on top or replaced
    LineIndex by_field_;                      // every live line, by its first field's hash
    std::vector<Id> dot_lines_;               // live lines that begin with a dot
    UniqueFd log_;
    bool given_up_ = false;
};

}  // namespace crelm::util
