// unzipping_channel: forward-only reader of zip containers
// format: docs/formats/zip.md
// invariant: between entries the source stands at the first byte behind the last descriptor
#include "unzipping_channel.h"

#include "detail_zip_bytes.h"
#include "file.h"
#include "trclog.h"

#include <algorithm>
#include <cstring>

namespace km {

namespace {

constexpr int in_size = 32768;
constexpr int scratch_size = 32768;
constexpr int small_read = 4096;
constexpr int ahead_size = 32768; // the engine is slow at the end of each piece that it makes
constexpr int most_empty_reads = 128;

} // namespace

unzipping_channel::unzipping_channel(input_channel* inner)
    : decompressing_channel(new pushback_input_channel(inner, in_size), new decompressor, in_size),
      scratch_(new unsigned char[scratch_size]), ahead_(new unsigned char[ahead_size]) {
    // Every operation looks at the status before it touches the source.
    if (!inner || engine_->get_status() < 0)
        status_ = channel_no_inner;
}

unzipping_channel::~unzipping_channel() {
    if (current_entry()) {
        KM_TRACE(trace_info, "common", "closing entry");
        close_entry();
    }
    if (skip_tail_ && !get_error())
        skipTAIL();
}

pushback_input_channel* unzipping_channel::source() const {
    return static_cast<pushback_input_channel*>(inner_);
}

void unzipping_channel::close() { filter_input_channel::close(); }

int unzipping_channel::get_error() { return status_ ? status_ : inner_->get_error(); }

int unzipping_channel::corrupted(const char* what) {
    KM_TRACE(trace_error, "common", "%s", what);
    if (!status_)
        status_ = channel_corrupted;
    return 0;
}

// Bytes are missing: the source's own failure tells more than that they are.
int unzipping_channel::cut_short(const char* what) {
    return inner_->get_error() ? 0 : corrupted(what);
}

int unzipping_channel::read_fully(unsigned char* buffer, long length) {
    int empty_reads = 0;
    while (length > 0) {
        const int got = inner_->read(buffer, static_cast<int>(std::min<long>(length, in_size)));
        if (got > 0) {
            total_read_ += got;
            buffer += got;
            length -= got;
            continue;
        }
        KM_TRACE(trace_info, "common", "n==-1");
        if (get_error()) {
            KM_TRACE(trace_error, "common", "rc= %d", get_error());
            return 0;
        }
        KM_TRACE(trace_info, "common", "maybe EOF Reached");
        if (++empty_reads >= most_empty_reads) {
            KM_TRACE(trace_error, "common", "Humm... it seems we are in a loop");
            return 0;
        }
    }
    return 1;
}

int unzipping_channel::readLOC() {
    unsigned char head[zip::local_size];
    header_offset_ = total_read_;
    if (!read_fully(head, sizeof head)) {
        KM_TRACE(trace_info, "common", "return 0 after read_fully");
        return cut_short("no local header");
    }
    if (zip::get4(head) != zip::local_signature)
        return corrupted("corrupted: LOCSIG");
    entry_ = zip_entry();
    entry_.version = zip::get2(head + 4);
    entry_.flag = zip::get2(head + 6);
    if (entry_.flag & zip::flag_encrypted)
        return corrupted("corrupted: LOCFLG");
    entry_.method = zip::get2(head + 8);
    entry_.time = zip::get4(head + 10);
    const bool sizes_follow = (entry_.flag & zip::flag_descriptor) != 0;
    entry_.crc = sizes_follow ? 0 : zip::get4(head + 14);
    entry_.csize = sizes_follow ? 0 : zip::get4(head + 18);
    entry_.size = zip::get4(head + 22);
    if (zip::get2(head + 26) == 0)
        return corrupted("corrupted: LOCNAM");
    return read_name(zip::get2(head + 26), zip::get2(head + 28));
}

// Both lengths are below 65536: no more memory than that.
int unzipping_channel::read_name(int name_length, int extra_length) {
    std::string name(static_cast<size_t>(name_length), '\0');
    std::string extra(static_cast<size_t>(extra_length), '\0');
    if (!read_fully(reinterpret_cast<unsigned char*>(name.data()), name_length))
        return cut_short("corrupted: LOCNAM");
    if ((entry_.method != zip_entry::stored && entry_.method != zip_entry::deflated) ||
        entry_.size > zip::largest)
        entry_.error = 3;
    if (extra_length) {
        KM_TRACE(trace_info, "common", "LOCEXT");
        if (!read_fully(reinterpret_cast<unsigned char*>(extra.data()), extra_length))
            return cut_short("corrupted: LOCEXT");
        entry_.extra = extra;
    }
    entry_.set_raw_name(name);
    return 1;
}

zip_entry* unzipping_channel::get_next_entry() {
    KM_TRACE_FUNCTION_OFTEN("unzipping_channel::get_next_entry");
    if (current_entry() && !close_entry())
        return nullptr;
    if (status_)
        return nullptr;
    crc_.reset();
    engine_->reset();
    touched_ = false;
    ahead_at_ = ahead_end_ = 0;
    if (!readLOC()) {
        entry_.clear_name();
        return nullptr;
    }
    remaining_ = entry_.method == zip_entry::stored ? entry_.size : 0;
    return &entry_;
}

zip_entry* unzipping_channel::get_next_directory_entry() {
    if (!get_next_entry())
        return nullptr;
    const int done = readEXT();
    entry_.clear_name();
    return done ? &entry_ : nullptr;
}

int unzipping_channel::readEXT() {
    if (!(entry_.flag & zip::flag_descriptor))
        return 1;
    unsigned char bytes[zip::descriptor_size];
    if (!read_fully(bytes, sizeof bytes))
        return cut_short("corrupted:EXTSIG ");
    if (zip::get4(bytes) != zip::descriptor_signature)
        return corrupted("corrupted:EXTSIG ");
    entry_.crc = zip::get4(bytes + 4);
    entry_.csize = zip::get4(bytes + 8);
    entry_.size = zip::get4(bytes + 12);
    if (entry_.size > zip::largest)
        entry_.error = 3;
    return 1;
}

void unzipping_channel::end_of_entry() {
    last_crc_ = entry_.crc;
    entry_.clear_name();
}

// What an entry does not use is pushed back, so from pushed-back bytes it takes no more than it
// probably needs: else each of many small entries would move a whole block to and fro.
int unzipping_channel::next_fill() const {
    constexpr long least = 512;
    return source()->pushed_back()
               ? static_cast<int>(std::clamp<long>(entry_.size, least, in_size_))
               : in_size_;
}

// Inflating took more input than the entry holds: what it did not use belongs to what follows.
int unzipping_channel::read_end() {
    const int unused = engine_->unused_input();
    if (unused > 0) {
        KM_TRACE(trace_info, "common", "Pushing back %d bytes...", unused);
        source()->unread(in_buffer_.get(), unused, in_length_ - unused);
        engine_->set_input(in_buffer_.get(), 0);
    }
    total_read_ += static_cast<long>(engine_->total_in());
    if (!readEXT())
        return 0;
    if (static_cast<unsigned long>(entry_.size) != (engine_->total_out() & 0xFFFFFFFFUL))
        return corrupted("corrupted 1");
    if (static_cast<unsigned long>(entry_.csize) != (engine_->total_in() & 0xFFFFFFFFUL))
        return corrupted("corrupted 2");
    return entry_.crc == crc_.get_value() ? 1 : corrupted("corrupted 3");
}

int unzipping_channel::read_stored(unsigned char* buffer, int length) {
    if (remaining_ == 0) {
        KM_TRACE(trace_info, "common", "remaining < 0");
        readEXT();
        end_of_entry();
        return -1;
    }
    const int got = inner_->read(buffer, static_cast<int>(std::min<long>(length, remaining_)));
    if (got < 1) {
        if (!inner_->get_error())
            corrupted("the data of a stored entry end early");
        return -1;
    }
    remaining_ -= got;
    total_read_ += got;
    crc_.update(buffer, got);
    return got;
}

int unzipping_channel::take_ahead(unsigned char* buffer, int length) {
    const int got = std::min(length, ahead_end_ - ahead_at_);
    std::memcpy(buffer, ahead_.get() + ahead_at_, static_cast<size_t>(got));
    ahead_at_ += got;
    return got;
}

// A tree is decoded byte by byte, and a call of the engine costs more than many bytes: small reads
// take from a block that was inflated ahead. What stands in front of a fault is still given.
int unzipping_channel::read_deflated(unsigned char* buffer, int length) {
    if (ahead_at_ < ahead_end_)
        return take_ahead(buffer, length);
    const bool is_small = length < small_read;
    unsigned char* const target = is_small ? ahead_.get() : buffer;
    const int got = decompressing_channel::read(target, is_small ? ahead_size : length);
    if (got < 1 || (!is_small && engine_->get_status() < 0))
        return end_of_deflated(got);
    crc_.update(target, got);
    if (!is_small)
        return got;
    ahead_at_ = 0;
    ahead_end_ = got;
    return take_ahead(buffer, length);
}

int unzipping_channel::end_of_deflated(int got) {
    if (engine_->get_status() < 0) {
        KM_TRACE(trace_error, "common", "decomp_status=%d", engine_->get_status());
        corrupted("the deflate stream is damaged");
    } else if (got == -1 && !get_error()) {
        read_end();
        end_of_entry();
    }
    return -1;
}

int unzipping_channel::read(unsigned char* buffer, int length) {
    if (!current_entry()) {
        KM_TRACE(trace_info, "common", "entry==null");
        return -1;
    }
    if (status_)
        return -1;
    if (length < 1)
        return 0;
    touched_ = true;
    if (entry_.method == zip_entry::stored)
        return read_stored(buffer, length);
    if (entry_.method == zip_entry::deflated)
        return read_deflated(buffer, length);
    KM_TRACE(trace_error, "common", "default");
    return -1;
}

int unzipping_channel::read() {
    if (ahead_at_ < ahead_end_ && !status_)
        return ahead_[static_cast<size_t>(ahead_at_++)];
    unsigned char byte = 0;
    return read(&byte, 1) == 1 ? byte : -1;
}

long unzipping_channel::ignore(long count) {
    long gone = 0;
    while (gone < count) {
        const int got =
            read(scratch_.get(), static_cast<int>(std::min<long>(count - gone, scratch_size)));
        if (got < 1)
            break;
        gone += got;
    }
    return gone;
}

int unzipping_channel::pass_over_stored() {
    int empty_reads = 0;
    while (remaining_ > 0) {
        const long gone = inner_->ignore(std::min<long>(remaining_, scratch_size));
        if (gone < 0 || (gone == 0 && ++empty_reads >= most_empty_reads)) {
            KM_TRACE(trace_error, "common", "fatal error");
            if (!status_ && inner_->get_error() != channel_network) // that one goes on later
                status_ = channel_fatal_read;
            return 0;
        }
        remaining_ -= gone;
        total_read_ += gone;
    }
    return 1;
}

int unzipping_channel::close_entry() {
    if (!current_entry())
        return 1;
    if (entry_.method == zip_entry::stored) {
        if (!pass_over_stored() || !readEXT())
            return 0;
        end_of_entry();
        return 1;
    }
    if (entry_.method != zip_entry::deflated)
        return corrupted("an entry of an unknown method cannot be passed over");
    // Where a descriptor follows, the length of the packed data is known only if the caller, who
    // has read the directory, told the open entry. What nobody read is then not inflated either.
    const long packed = entry_.flag & zip::flag_descriptor ? entry_.csize : 0;
    for (long left = touched_ ? 0 : packed; left > 0;) {
        const int wanted =
            source()->pushed_back() ? static_cast<int>(std::min<long>(left, in_size_)) : in_size_;
        const int got = inner_->read(in_buffer_.get(), wanted);
        if (got < 1)
            return cut_short("corrupted: an entry ends early");
        const int used = static_cast<int>(std::min<long>(left, got));
        source()->unread(in_buffer_.get(), got - used, used);
        total_read_ += used;
        left -= used;
        if (left > 0)
            continue;
        if (!readEXT() || (entry_.csize != packed && !corrupted("corrupted 2")))
            return 0;
        end_of_entry();
        return 1;
    }
    while (read(scratch_.get(), scratch_size) > 0) {
    }
    return status_ == 0 && get_error() == 0;
}

namespace {

bool is_safe_name(const std::string& name) {
    if (name.empty() || name[0] == '/' || name.find('\0') != std::string::npos)
        return false;
    for (size_t start = 0; start <= name.size();) {
        const size_t end = std::min(name.find('/', start), name.size());
        if (name.compare(start, end - start, "..") == 0)
            return false;
        start = end + 1;
    }
    return true;
}

} // namespace

int unzipping_channel::extract_file() {
    if (!get_next_entry())
        return 0;
    const std::string name = entry_.get_name();
    if (!is_safe_name(name)) {
        status_ = channel_bad_call;
        return 0;
    }
    return copy_file(pathname(name.c_str()));
}

int unzipping_channel::extract_file(const pathname& path) {
    return get_next_entry() && copy_file(path);
}

int unzipping_channel::copy_file(const pathname& path) {
    KM_TRACE_FUNCTION("unzipping_channel::copy_file");
    if (!current_entry())
        return 0;
    const pathname parent = path.get_parent();
    if (parent.is_valid() && !file(parent).mk_tree())
        return 0;
    file_output_channel out(path, 0);
    for (int got; (got = read(scratch_.get(), scratch_size)) > 0;)
        out.write(scratch_.get(), got);
    out.close();
    // An entry of an unknown method gives no data and does not end.
    return !current_entry() && get_error() == 0 && out.get_error() == 0;
}

int unzipping_channel::skip_bytes(long count) {
    while (count > 0) {
        const long block = std::min<long>(count, scratch_size);
        if (!read_fully(scratch_.get(), block))
            return 0;
        count -= block;
    }
    return 1;
}

int unzipping_channel::skipCEN(int have) {
    unsigned char head[zip::central_size];
    if (!read_fully(head + have, zip::central_size - have))
        return 0;
    return skip_bytes(static_cast<long>(zip::get2(head + 28)) + zip::get2(head + 30) +
                      zip::get2(head + 32));
}

int unzipping_channel::skipEND(int have) {
    unsigned char head[zip::end_size];
    return read_fully(head + have, zip::end_size - have) && skip_bytes(zip::get2(head + 20));
}

void unzipping_channel::skipTAIL() {
    unsigned char signature[4];
    for (;;) {
        if (!read_fully(signature, 4))
            return;
        if (zip::get4(signature) != zip::central_signature)
            break;
        if (!skipCEN(4))
            return;
    }
    if (zip::get4(signature) != zip::end_signature)
        corrupted("corrupted: ENDSIG");
    else
        skipEND(4);
}

} // namespace km
