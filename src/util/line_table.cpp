#include "util/line_table.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "util/fd_copy.h"

namespace crelm::util {
namespace {

// A record: its length, then its steps, each a kind, a line's id and a
// text's length and bytes; the numbers in the machine's own order (the log
// never leaves the process's children).
template <typename Number>
void put_number(std::string& out, Number number) {
    out.append(reinterpret_cast<const char*>(&number), sizeof number);
}

template <typename Number>
bool take_number(std::string_view& in, Number& number) {
    if (in.size() < sizeof number)
        return false;
    std::memcpy(&number, in.data(), sizeof number);
    in.remove_prefix(sizeof number);
    return true;
}

}  // namespace

bool LineTable::allocate(std::size_t size) {
    if (!text_.allocate(size))
        return false;
    base_text_ = text_.data();
    base_size_ = size;
    return true;
}

// Counts the lines, and refuses a text that is not whole short lines.
bool LineTable::count_lines() {
    const std::string_view all(base_text_, base_size_);
    if (!all.empty() && all.back() != '\n')
        return false;
    if (all.size() > UINT32_MAX)
        return false;
    std::size_t count = 0;
    for (std::size_t start = 0; start < all.size(); ++count) {
        const std::size_t end = all.find('\n', start) + 1;
        if (end - start >= kLongestLine)
            return false;
        start = end;
    }
    if (!starts_.allocate((count + 1) * sizeof(std::uint32_t)) || !by_field_.reserve(count))
        return false;
    auto* starts = reinterpret_cast<std::uint32_t*>(starts_.data());
    std::size_t line = 0;
    for (std::size_t start = 0; start < all.size(); ++line) {
        starts[line] = static_cast<std::uint32_t>(start);
        start = all.find('\n', start) + 1;
    }
    starts[count] = static_cast<std::uint32_t>(all.size());
    base_starts_ = starts;
    base_count_ = static_cast<Id>(count);
    base_changed_.assign(base_count_, false);
    for (Id id = 0; id < base_count_; ++id)
        index(id, all.substr(base_starts_[id], base_starts_[id + 1] - base_starts_[id]));
    return true;
}

std::unique_ptr<LineTable> LineTable::from_text(std::string_view text) {
    std::unique_ptr<LineTable> table(new LineTable());
    if (!table->allocate(text.size()))
        return nullptr;
    std::memcpy(const_cast<char*>(table->base_text_), text.data(), text.size());
    return table->count_lines() ? std::move(table) : nullptr;
}

std::unique_ptr<LineTable> LineTable::read_from(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0)
        return nullptr;
    std::unique_ptr<LineTable> table(new LineTable());
    if (!S_ISREG(info.st_mode) || !table->allocate(static_cast<std::size_t>(info.st_size)))
        return nullptr;
    char* text = const_cast<char*>(table->base_text_);
    std::size_t filled = 0;
    while (filled < table->base_size_) {
        const ssize_t got = ::pread(fd, text + filled, table->base_size_ - filled, static_cast<off_t>(filled));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return nullptr;
        filled += static_cast<std::size_t>(got);
    }
    return table->count_lines() ? std::move(table) : nullptr;
}

void LineTable::for_each(const std::function<bool(Id id, std::string_view line)>& visit) const {
    for (std::size_t i = tops_.size(); i-- > 0;)
        if (tops_[i].live && visit(base_count_ + static_cast<Id>(i), tops_[i].text()))
            return;
    std::size_t start = 0;
    for (Id id = 0; id < base_count_; ++id) {
        const char* newline = static_cast<const char*>(std::memchr(base_text_ + start, '\n', base_size_ - start));
        const std::size_t end = static_cast<std::size_t>(newline - base_text_) + 1;
        if (!base_changed_[id]) {
            if (visit(id, std::string_view(base_text_ + start, end - start)))
                return;
        } else if (const Line& line = base_changes_.at(id); line.live && visit(id, line.text())) {
            return;
        }
        start = end;
    }
}

std::string LineTable::text() const {
    std::string all;
    all.reserve(base_size_);
    for_each([&all](Id, std::string_view line) {
        all.append(line);
        return false;
    });
    return all;
}

std::uint64_t LineTable::field_hash(std::string_view line) {
    std::string_view field = line.substr(0, line.find(':'));
    if (!field.empty() && field.back() == '\n')
        field.remove_suffix(1);
    // FNV-1a over the field's bytes, A-Z taken as a-z.
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char byte : field) {
        const char lower = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
        hash = (hash ^ static_cast<unsigned char>(lower)) * 1099511628211ULL;
    }
    return hash;
}

void LineTable::index(Id id, std::string_view line) {
    // An index that cannot grow any more keeps the lines it has: a forked
    // editor never adds so many.
    (void)by_field_.insert(field_hash(line), id);
    if (line.starts_with('.'))
        dot_lines_.push_back(id);
}

void LineTable::unindex(Id id, std::string_view line) {
    by_field_.erase(field_hash(line), id);
    if (line.starts_with('.'))
        std::erase(dot_lines_, id);
}

LineTable::Line LineTable::held(Id id) const {
    if (id >= base_count_)
        return tops_[id - base_count_];
    if (base_changed_[id])
        return base_changes_.at(id);
    return Line{base_text_ + base_starts_[id], base_starts_[id + 1] - base_starts_[id], true};
}

std::string_view LineTable::line(Id id) const {
    return held(id).text();
}

std::size_t LineTable::position(Id id) const {
    return id >= base_count_ ? tops_.size() - 1 - (id - base_count_) : tops_.size() + id;
}

void LineTable::sort_by_position(std::vector<Id>& ids) const {
    std::sort(ids.begin(), ids.end(), [this](Id one, Id other) { return position(one) < position(other); });
}

namespace {

// Field equality as the hash sees it: up to the first ':' (or the newline),
// A-Z taken as a-z.
bool same_first_field(std::string_view line, std::string_view field) {
    std::string_view own = line.substr(0, line.find(':'));
    if (!own.empty() && own.back() == '\n')
        own.remove_suffix(1);
    if (own.size() != field.size())
        return false;
    for (std::size_t i = 0; i < own.size(); ++i) {
        const auto lower = [](char byte) { return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte; };
        if (lower(own[i]) != lower(field[i]))
            return false;
    }
    return true;
}

}  // namespace

std::vector<LineTable::Id> LineTable::with_first_field(std::string_view field) const {
    std::vector<Id> ids;
    for (const Id id : by_field_.find(field_hash(field)))
        if (held(id).live && same_first_field(line(id), field))
            ids.push_back(id);
    sort_by_position(ids);
    return ids;
}

std::vector<LineTable::Id> LineTable::equal_to(std::string_view text) const {
    std::vector<Id> ids = with_first_field(text.substr(0, text.find(':')));
    std::erase_if(ids, [&](Id id) {
        const std::string_view held_text = line(id);
        return held_text.substr(0, held_text.size() - 1) != text;
    });
    return ids;
}

std::vector<LineTable::Id> LineTable::beginning_with_dot() const {
    std::vector<Id> ids = dot_lines_;
    sort_by_position(ids);
    return ids;
}

LineTable::Line* LineTable::changed(Id id) {
    if (id >= base_count_ + tops_.size())
        return nullptr;
    if (id >= base_count_)
        return &tops_[id - base_count_];
    if (!base_changed_[id]) {
        const std::string_view text(base_text_ + base_starts_[id], base_starts_[id + 1] - base_starts_[id]);
        base_changes_[id] = Line{text.data(), static_cast<std::uint32_t>(text.size()), true};
        base_changed_[id] = true;
    }
    return &base_changes_[id];
}

bool LineTable::write_to(int fd) const {
    constexpr std::size_t kBlock = std::size_t{1} << 20;
    std::string block;
    block.reserve(kBlock + kLongestLine);
    bool written = true;
    for_each([&](Id, std::string_view line) {
        block.append(line);
        if (block.size() >= kBlock) {
            written = write_all(fd, block);
            block.clear();
        }
        return !written;
    });
    return written && write_all(fd, block);
}

void LineTable::apply(const Edit::Step& step) {
    if (step.change == Edit::Change::give_up) {
        given_up_ = true;
        return;
    }
    if (step.change == Edit::Change::top) {
        const std::string& text = owned_.emplace_back(step.text);
        tops_.push_back(Line{text.data(), static_cast<std::uint32_t>(text.size()), true});
        index(base_count_ + static_cast<Id>(tops_.size() - 1), text);
        return;
    }
    Line* line = changed(step.id);
    if (line == nullptr || !line->live)
        return;
    unindex(step.id, line->text());
    if (step.change == Edit::Change::drop) {
        line->live = false;
        return;
    }
    const std::string& text = owned_.emplace_back(step.text);
    *line = Line{text.data(), static_cast<std::uint32_t>(text.size()), true};
    index(step.id, text);
}

std::string LineTable::encode(const std::vector<Edit::Step>& steps) {
    std::string record;
    put_number(record, std::uint32_t{0});
    for (const Edit::Step& step : steps) {
        record.push_back(static_cast<char>(step.change));
        put_number(record, step.id);
        put_number(record, static_cast<std::uint32_t>(step.text.size()));
        record.append(step.text);
    }
    const auto length = static_cast<std::uint32_t>(record.size() - sizeof(std::uint32_t));
    std::memcpy(record.data(), &length, sizeof length);
    return record;
}

bool LineTable::Edit::commit() {
    if (changes_.empty())
        return true;
    if (table_.log_.valid()) {
        const off_t before = ::lseek(table_.log_.get(), 0, SEEK_END);
        if (before < 0)
            return false;
        if (!write_all(table_.log_.get(), encode(changes_))) {
            // A part of the record written would be taken for the start of
            // the next one.
            const int saved = errno;
            (void)::ftruncate(table_.log_.get(), before);
            errno = saved;
            return false;
        }
    }
    for (const Step& step : changes_)
        table_.apply(step);
    changes_.clear();
    return true;
}

bool LineTable::give_up() {
    Edit edit(*this);
    edit.changes_.push_back({Edit::Change::give_up, 0, {}});
    return edit.commit();
}

bool LineTable::open_log() {
    log_ = UniqueFd(::memfd_create("sorvane-held-lines", MFD_CLOEXEC));
    // Kept above the standard descriptors, which a forked command puts its
    // own files over.
    if (log_.valid() && log_.get() <= STDERR_FILENO)
        log_ = UniqueFd(::fcntl(log_.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    return log_.valid();
}

bool LineTable::apply_record(std::string_view record) {
    std::vector<Edit::Step> steps;
    while (!record.empty()) {
        Edit::Step step{static_cast<Edit::Change>(record.front()), 0, {}};
        record.remove_prefix(1);
        std::uint32_t size = 0;
        if (!take_number(record, step.id) || !take_number(record, size) || record.size() < size)
            return false;
        step.text.assign(record.substr(0, size));
        record.remove_prefix(size);
        steps.push_back(std::move(step));
    }
    for (const Edit::Step& step : steps)
        apply(step);
    return true;
}

std::optional<std::size_t> LineTable::replay_log() {
    const UniqueFd log = std::move(log_);
    if (!log.valid())
        return std::size_t{0};
    std::string records;
    if (::lseek(log.get(), 0, SEEK_SET) < 0 || !read_to_end(log.get(), records))
        return std::nullopt;
    std::size_t replayed = 0;
    std::string_view rest(records);
    std::uint32_t length = 0;
    while (take_number(rest, length) && rest.size() >= length && apply_record(rest.substr(0, length))) {
        rest.remove_prefix(length);
        ++replayed;
    }
    return replayed;
}

}  // namespace crelm::util
