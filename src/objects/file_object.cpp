// file_object: a regular file
// format: docs/formats/package-file.md
// invariants: a file is written beside its place, or without a name, and gets its own name when its
// size and digest are right; a file of any size passes through a block of fixed size
#include "file_object.h"

#include "codec.h"
#include "crc.h"
#include "digest.h"
#include "durable.h"
#include "files_ahead.h"
#include "kill_point.h"
#include "object_command.h"
#include "object_messages.h"
#include "open_file.h"
#include "own_texts.h"
#include "pack_ahead.h"
#include "package.h"
#include "plain_text.h"
#include "room.h"
#include "tree_files.h"
#include "trclog.h"
#include "zip_time.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace km {

namespace {
constexpr int block_size = 65536;
unsigned char block[block_size];

std::string directory_part(const std::string& path) {
    return path.substr(0, path.find_last_of('/') + 1);
}
} // namespace

const char* km_file::codable_name() const { return "com.ombrel.sd.cmObjects.KmFile"; }

void km_file::encode_object(encoder& to) const {
    km_object::encode_object(to);
    if (!placed.empty())
        to.encode_string_field(219, placed);
    to.encode_boolean_field(221, in_base);
}

codable* km_file::decode_object(decoder& from, long stream_version) {
    km_object::decode_object(from, stream_version);
    from.decode_string_field(219, placed);
    from.decode_boolean_field(221, in_base);
    return this;
}

cm_result km_file::open_data(unzipping_channel*& in) {
    in = package ? package->get_input_channel() : nullptr;
    if (!in || sequence <= 0)
        return fail(om_no_data, path_bytes());
    switch (align(*in, sequence)) {
    case alignment::mine:
        return cm_command::success;
    case alignment::lost_stream:
        return result = cm_command::success_retry;
    case alignment::not_ahead:
        return fail(om_no_data, path_bytes());
    default:
        fail(om_stream, path_bytes());
        return result = cm_command::fatal_failure;
    }
}

// The stream is beyond this file's data, or never had any.
bool km_file::has_no_data() {
    unzipping_channel* in = package ? package->get_input_channel() : nullptr;
    return !in || sequence <= 0 || align(*in, sequence) == alignment::not_ahead;
}

// A file that fails before it read its data still takes them out of the way of the next one.
cm_result km_file::pass_over_data(cm_result with) {
    if (km_file::skip_data() == cm_command::success_retry)
        return result = cm_command::success_retry;
    return result = with;
}

cm_result km_file::write_from(unzipping_channel& in, int out, const std::string& name) {
    sha256 sum;
    long written = 0;
    for (;;) {
        const int got = in.read(block, block_size);
        if (got < 0)
            break;
        sum.add(block, static_cast<size_t>(got));
        written += got;
        if (written > size)
            break;
        if (got && !write_fully(out, reinterpret_cast<const char*>(block),
                                static_cast<unsigned long>(got))) {
            const int error = errno;
            in.close_entry();
            return fail("write", name, error);
        }
    }
    return check_written(in, written, sum.finish());
}

cm_result km_file::check_written(unzipping_channel& in, long written, const std::string& sum) {
    if (in.get_error() == channel_network)
        return result = cm_command::success_retry;
    if (in.get_error()) {
        fail(om_stream, path_bytes());
        return result = cm_command::fatal_failure;
    }
    if (written != size || ustring(sum.c_str()) != digest)
        return fail(om_digest, path_bytes());
    return cm_command::success;
}

cm_result km_file::write_ahead(unzipping_channel& in, const inflate_ahead::entry_data& data,
                               int out, const std::string& name) {
    const auto length = static_cast<long>(data.bytes.size());
    if (length <= size && !write_fully(out, data.bytes.data(), data.bytes.size()))
        return fail("write", name, errno);
    return check_written(in, length, data.digest);
}

cm_result km_file::give_attributes(int descriptor, const std::string& name) {
    const char* failed = set_attributes(descriptor, attributes(), written_inode_);
    return failed ? fail(failed, name, errno) : cm_command::success;
}

cm_result km_file::write_temporary(unzipping_channel& in, const place& where,
                                   const std::string& name, const inflate_ahead::entry_data* data) {
    const std::string full = where.parent + "/" + name;
    const writable_directory lifted(where.directory);
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const mode_t first_mode = mode_while_written(attributes());
    int made = ::openat(where.directory, name.c_str(), flags, first_mode);
    if (made < 0 && errno == EEXIST) {
        ::unlinkat(where.directory, name.c_str(), 0);
        made = ::openat(where.directory, name.c_str(), flags, first_mode);
    }
    const open_file out(made);
    if (!out.good()) {
        const auto failed = fail("make", full, errno);
        return data ? failed : pass_over_data(failed);
    }
    touched(where.directory, out.get());
    const auto written =
        data ? write_ahead(in, *data, out.get(), full) : write_from(in, out.get(), full);
    return written == cm_command::success ? give_attributes(out.get(), full) : written;
}

namespace {
// What another processor wrote for the file, as far as it serves.
const nameless_file* ready_file(const inflate_ahead::entry_data& data, const place& where,
                                const file_attributes& wanted) {
    const auto* ready = dynamic_cast<const nameless_file*>(data.product.get());
    return ready && ready->given == wanted && is_directory(where, ready->made_in) ? ready : nullptr;
}

// Under a temporary name beside what stands there.
bool give_temporary_name(const nameless_file& file, const place& where, const std::string& name) {
    if (name_open_file(where, name, file.file.get()))
        return true;
    return errno == EEXIST && ::unlinkat(where.directory, name.c_str(), 0) == 0 &&
           name_open_file(where, name, file.file.get());
}
} // namespace

// `data` of the right content. False: the file must be written in the usual way.
bool km_file::place_nameless(const inflate_ahead::entry_data& data, const place& where,
                             bool is_taken, std::string& name) {
    std::unique_ptr<nameless_file> made;
    const nameless_file* file = ready_file(data, where, attributes());
    if (!file && !is_taken)
        file = (made = write_nameless(where.directory, attributes(), data.bytes)).get();
    if (!file)
        return false;
    KM_KILL_POINT("file.before_name");
    written_inode_ = file->inode;
    if (!is_taken && name_open_file(where, where.name, file->file.get()))
        return true;
    name = temporary_name();
    return give_temporary_name(*file, where, name);
}

// `is_taken`: something stands there. `name`: the temporary one that the new file has; empty if it
// has its own.
cm_result km_file::write_new(unzipping_channel& in, const place& where, bool is_taken,
                             std::string& name) {
    const auto data = take_data_ahead(in);
    if (data) {
        const auto checked = check_written(in, static_cast<long>(data->bytes.size()), data->digest);
        if (checked != cm_command::success || place_nameless(*data, where, is_taken, name))
            return checked;
    }
    name = temporary_name();
    return write_temporary(in, where, name, data.get());
}

cm_result km_file::bring(const std::string& into) {
    unzipping_channel* in = nullptr;
    const auto opened = open_data(in);
    if (opened != cm_command::success)
        return opened;
    const std::string target = directory_part(path_bytes()) + into;
    struct stat present {};
    const bool is_taken = look_at(target, present);
    const bool replaces = is_taken && S_ISREG(present.st_mode);
    const auto parents = make_parents(target);
    if (parents != cm_command::success)
        return pass_over_data(parents);
    const place where = locate(target);
    if (!where.found())
        return pass_over_data(fail("reach", where.parent, where.error));
    begin_temporary();
    stop_reading_ahead();
    come_to_files(*in, *package, where, replaces);
    std::string name;
    const auto written = write_new(*in, where, is_taken, name);
    KM_KILL_POINT("file.before_rename");
    if (written != cm_command::success || !(name.empty() || replace_name(where, name, replaces))) {
        const int error = errno;
        if (!name.empty())
            remove_name(where.parent + "/" + name, false);
        return written != cm_command::success ? written : fail("put in place", target, error);
    }
    end_temporary();
    wrote_file(where.directory, size);
    if (target == path_bytes())
        note_placed(where);
    return cm_command::success;
}

namespace {
ustring state_of_inode(const struct stat& about) {
    char text[64];
    std::snprintf(text, sizeof text, "%llu %lld.%09ld",
                  static_cast<unsigned long long>(about.st_ino),
                  static_cast<long long>(about.st_ctim.tv_sec), about.st_ctim.tv_nsec);
    return ustring(text);
}

bool is_time(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Read as numbers first: to write the text of each file costs more.
bool tells_of(const ustring& state, const struct stat& about) {
    const char16_t* at = state.c_str();
    unsigned long inode = 0, seconds = 0, nanoseconds = 0;
    const bool is_same =
        take_number(at, inode) && *at++ == u' ' && take_number(at, seconds) && *at++ == u'.' &&
        take_number(at, nanoseconds) && !*at && inode == about.st_ino &&
        is_time({static_cast<time_t>(seconds), static_cast<long>(nanoseconds)}, about.st_ctim);
    return is_same || state == state_of_inode(about);
}
} // namespace

// Behind the rename, which is a change of the inode, too. Whoever got hold of the file in between
// and wrote to it changed its time of modification, which is the package's.
void km_file::note_placed(const place& where) {
    struct stat about {};
    placed = ustring();
    if (::fstatat(where.directory, where.name.c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(about.st_mode) && about.st_ino == written_inode_ && about.st_size == size &&
        is_time(about.st_mtim, modification_time()))
        placed = state_of_inode(about);
}

// Every write, and every change of the times, sets the time of change to the present. A verify
// looks at the bytes themselves: disks forget, too.
bool km_file::is_as_placed(const struct stat& about) {
    if (placed.empty() || (package && says(package->operation_name, u"verify")))
        return false;
    if (seen_as_placed_.is(about))
        return true;
    if (!is_time(about.st_mtim, modification_time()) || !tells_of(placed, about))
        return false;
    seen_as_placed_.set(about);
    return true;
}

void km_file::learn_from(km_file& older) {
    struct stat about {};
    if (!look_at(path_bytes(), about) || !S_ISREG(about.st_mode) || about.st_size != older.size ||
        !older.is_as_placed(about))
        return;
    learnt_.set(about);
    learnt_digest_ = older.digest;
}

// The content stands already; owner, mode and time may differ.
cm_result km_file::take_from_base() {
    const std::string& bytes = path_bytes();
    if (!stands_as_described(bytes, false))
        return fail(om_not_replaced, bytes);
    const open_file file(open_for_reading(bytes));
    if (!file.good())
        return fail("read", bytes, errno);
    const place where = locate(bytes);
    if (where.found())
        touched(where.directory, file.get());
    return give_attributes(file.get(), bytes);
}

cm_result km_file::put(int) {
    const std::string& bytes = path_bytes();
    if (in_base)
        return take_from_base();
    return bring(bytes.substr(bytes.find_last_of('/') + 1));
}

// The staged copy stands beside the target, so that the commit is a rename.
cm_result km_file::stage() {
    const std::string base = staging_directory();
    if (base.empty())
        return pass_over_data(result);
    const std::string name = temporary_name();
    const std::string final_name = base + name + staged_mark;
    if (staged && staged_name == ustring(final_name.c_str()) && is_identical(p_prepare))
        return km_file::skip_data();
    staged = 0;
    unzipping_channel* in = nullptr;
    if (has_no_data() && is_identical(p_do))
        return cm_command::success; // a difference package: what it leaves out must stand
    const auto opened = open_data(in);
    if (opened != cm_command::success)
        return opened;
    const place staging = locate(final_name);
    if (!staging.found())
        return pass_over_data(fail("reach", staging.parent, staging.error));
    begin_temporary();
    const auto written = write_temporary(*in, staging, name, take_data_ahead(*in).get());
    if (written != cm_command::success || !replace_name(staging, name)) {
        const int error = errno;
        remove_name(base + name, false);
        return written != cm_command::success ? written : fail("prepare", final_name, error);
    }
    wrote_file(staging.directory, size);
    note_staged(final_name);
    return cm_command::success;
}

cm_result km_file::take() {
    struct stat about {};
    const std::string& bytes = path_bytes();
    if (!look_at(bytes, about))
        return errno == ENOENT || errno == ENOTDIR ? cm_command::success
                                                   : fail("look at", bytes, errno);
    if (S_ISDIR(about.st_mode))
        return fail(om_is_directory, bytes);
    KM_KILL_POINT("file.before_unlink");
    const auto removed = remove_own(bytes);
    return removed == cm_command::success ? remove_made_parents(bytes) : removed;
}

cm_result km_file::check_target(const place& where, const struct stat* present) {
    if (present && S_ISDIR(present->st_mode))
        return fail(om_is_directory, path_bytes());
    if (in_base)
        return stands_as_described(path_bytes(), false) ? cm_command::success
                                                        : fail(om_not_replaced, path_bytes());
    std::string needed, free_bytes;
    if (is_only_prepared())
        return cm_command::success;                    // it has its room
    const bool in_place = checked_phase_ != p_prepare; // else the copies stand beside, all together
    const long replaced = in_place && present && S_ISREG(present->st_mode) ? present->st_size : 0;
    // Where a backup is a wish only, it is given up before files are: see object_of_present.
    const bool with_backup = !package || !package->operation_is_preferably_undoable;
    if (note_room(where.directory, size, replaced, with_backup, needed, free_bytes))
        return cm_command::success;
    if (errno != ENOSPC)
        return fail("ask for the room of", where.parent, errno);
    tell(package, om_no_room, where.parent, needed, free_bytes);
    return result = cm_command::temporary_failure;
}

int km_file::is_identical(int phase) {
    const int answer = km_object::is_identical(phase);
    if (phase != p_prepare)
        stood_as_described = answer;
    return answer;
}

bool km_file::stands_as_described(const std::string& at, bool with_rights) {
    struct stat about {};
    if (!look_at(at, about) || !S_ISREG(about.st_mode) || (with_rights && !same_rights(about)))
        return false;
    if (about.st_size != size)
        return differs_by_own_texts(at);
    if (at == path_bytes() && is_as_placed(about))
        return true;
    if (learnt_.is(about))
        return learnt_digest_ == digest || differs_by_own_texts(at);
    const std::string sum = digest_at(at, about);
    if (sum.empty()) {
        // What its owner may not read either is told by its time.
        const timespec told = modification_time();
        return errno == EACCES && about.st_mtim.tv_sec == told.tv_sec &&
               about.st_mtim.tv_nsec == told.tv_nsec;
    }
    return ustring(sum.c_str()) == digest || differs_by_own_texts(at);
}

namespace {
// Whoever asked for some files of a package goes on to ask for all of them.
void look_ahead(cm_package& package, const std::string& path, known_file& known,
                std::string& digest) {
    constexpr int some = 64;
    static int asked = 0;
    if (!began_to_read_ahead()) {
        if (++asked < some)
            return;
        std::vector<std::string> paths;
        each_file(package, [&paths](const km_file& file) { paths.push_back(file.path_bytes()); });
        begin_to_read_ahead(paths);
    }
    take_read_ahead(path, known, digest);
}
} // namespace

// The check, the backup and the run behind them ask the same.
std::string km_file::digest_at(const std::string& at, const struct stat& about) {
    if (!read_.is(about) && package && at == path_bytes())
        look_ahead(*package, at, read_, read_digest_);
    if (read_.is(about))
        return read_digest_;
    const open_file in(open_for_reading(at));
    if (!in.good())
        return {};
    read_ = {};
    read_digest_ = digest_of_known_file(in.get(), about.st_size, read_);
    return read_digest_;
}

// Lines and other texts that the package itself put into the file belong to it.
bool km_file::differs_by_own_texts(const std::string& at) const {
    std::string bytes;
    if (!package || at != path_bytes() || !read_without_own_texts(*package, at, bytes) ||
        bytes.size() != static_cast<size_t>(size))
        return false;
    return ustring(digest_of(bytes).c_str()) == digest;
}

// On the machine that packs the source is an own path; the source of an undo is the live path.
int km_file::open_source() {
    return source.empty() ? open_for_reading(path_bytes())
                          : ::open(source.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

cm_result km_file::load(int) {
    result = cm_command::success;
    if (source.empty() && mtime.empty()) // out of a definition; that of an undo has its time
        return fail(om_no_source, path_bytes());
    const std::string& shown = source.empty() ? path_bytes() : source;
    const open_file in(open_source());
    struct stat about {};
    if (!in.good() || ::fstat(in.get(), &about) != 0)
        return fail("read", shown, errno);
    if (!S_ISREG(about.st_mode))
        return fail(om_special, shown);
    take_metadata(about);
    placed = ustring();
    size = about.st_size;
    std::string sum = read_digest_;
    if (!read_.is(about)) {
        read_ = {};
        sum = read_digest_ = digest_of_known_file(in.get(), size, read_);
    }
    if (sum.empty())
        return fail("read", shown, errno);
    digest = ustring(sum.c_str());
    sequence = next_data_sequence();
    return result;
}

told_data km_file::told() const {
    const bool is_known = digest == ustring(read_digest_.c_str());
    return {size, digest.mbcs_str(), is_known ? read_ : known_file{}};
}

zip_entry* km_file::new_data_entry() const {
    auto* entry = new zip_entry(data_entry_name(sequence).c_str());
    entry->size = size;
    long seconds = modification_time().tv_sec;
    if (seconds == -1)
        seconds = 0; // would ask for the present
    entry->time = unix2dostime(&seconds);
    return entry;
}

cm_result km_file::save(zipping_channel* out) {
    if (const auto data = take_packed_ahead(*this, *out)) {
        const bool put = out->put_deflated_entry(new_data_entry(), *data);
        return result = put && !out->get_error() ? cm_command::success : cm_command::failure;
    }
    result = cm_command::success;
    const std::string& shown = source.empty() ? path_bytes() : source;
    const open_file in(open_source());
    if (!in.good())
        return fail("read", shown, errno);
    if (!out->put_next_entry(new_data_entry()))
        return result = cm_command::failure;
    const auto passed = pass_data(in.get(), told(), [out](const unsigned char* bytes, int count) {
        out->write(bytes, count);
    });
    if (passed == passing::unreadable)
        return fail("read", shown, errno);
    if (passed == passing::changed) {
        fail(om_changed, shown);
        return result = cm_command::temporary_failure;
    }
    out->close_entry();
    return result = out->get_error() ? cm_command::failure : cm_command::success;
}

cm_result km_file::save(unzipping_channel* in, zipping_channel* out) {
    result = cm_command::success;
    if (sequence <= 0)
        return result;
    switch (align(*in, sequence)) {
    case alignment::mine:
        break;
    case alignment::lost_stream:
        return result = cm_command::success_retry;
    default:
        return fail(om_no_data, path_bytes());
    }
    if (!out)
        return result = in->close_entry() ? cm_command::success : fail(om_stream, path_bytes());
    auto* entry = new zip_entry(data_entry_name(sequence).c_str());
    entry->size = size;
    entry->time = in->current_entry()->time;
    if (!out->put_next_entry(entry))
        return result = cm_command::failure;
    for (int got; (got = in->read(block, block_size)) >= 0;)
        out->write(block, got);
    out->close_entry();
    if (in->get_error())
        return fail(om_stream, path_bytes());
    return result = out->get_error() ? cm_command::failure : cm_command::success;
}

namespace {
long crc_of(int descriptor) {
    CRC32 sum;
    for (;;) {
        const ssize_t got = ::read(descriptor, block, block_size);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            return static_cast<long>(sum.get_value());
        sum.update(block, static_cast<int>(got));
    }
}
} // namespace

cm_result km_file::delta_save(pathname*, unzipping_channel* in, zipping_channel* out) {
    result = cm_command::success;
    if (data_crc >= 0 && in) // whoever made the delta compared the digests
        return in_base ? save(in, nullptr) : save(in, out);
    const std::string& shown = source.empty() ? path_bytes() : source;
    const open_file file(open_source());
    if (!file.good())
        return fail("read", shown, errno);
    const long of_base = package ? package->get_crc_from_CEN(pathname(path)) : 0;
    if (of_base && of_base == crc_of(file.get()))
        return result;
    return in ? save(in, out) : save(out);
}

cm_result km_file::skip_data() {
    unzipping_channel* in = package ? package->get_input_channel() : nullptr;
    if (!in || sequence <= 0)
        return result = cm_command::success;
    switch (align(*in, sequence)) {
    case alignment::mine:
        if (take_data_ahead(*in) ? !in->get_error() : in->close_entry())
            return result = cm_command::success;
        if (in->get_error() == channel_network)
            return result = cm_command::success_retry;
        break;
    case alignment::not_ahead:
        return result = cm_command::success;
    case alignment::lost_stream:
        return result = cm_command::success_retry;
    default:
        break;
    }
    fail(om_stream, path_bytes());
    return result = cm_command::fatal_failure;
}

extern "C" codable* make_KmFile() { return new km_file; }

} // namespace km
