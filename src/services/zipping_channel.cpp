// zipping_channel: writer of zip containers
// format: docs/formats/zip.md
// invariant: `written` is the offset of the next byte; every finished entry stands in the directory
#include "zipping_channel.h"

#include "detail_zip_bytes.h"
#include "file.h"
#include "trclog.h"
#include "zip_time.h"

#include <cstring>

namespace km {

namespace {
constexpr int read_size = 5 * entry_portion; // so that every portion is whole
} // namespace

zipping_channel::zipping_channel(output_channel* inner)
    : compressing_channel(inner, new compressor, entry_step) {
    set_finish_on_close(0);
}

zipping_channel::~zipping_channel() = default;

int zipping_channel::fail(int status) {
    if (!status_)
        status_ = status;
    return 0;
}

void zipping_channel::set_comment(const char* comment) {
    if (!comment || std::strlen(comment) > 65535)
        fail(channel_bad_call);
    else
        comment_ = comment;
}

void zipping_channel::set_method(int method) {
    if (method == zip_entry::stored || method == zip_entry::deflated)
        default_method_ = method;
    else
        fail(channel_bad_call);
}

void zipping_channel::set_level(int level) {
    level_ = level;
    engine_->set_level(level);
}

void zipping_channel::complete_from_file() {
    if (current_->time != -1 && current_->size != -1)
        return;
    file source(pathname(current_->get_name() ? current_->get_name() : ""));
    if (current_->time == -1) {
        long modified = source.last_modified();
        current_->time = unix2dostime(&modified);
    }
    if (current_->size == -1)
        current_->size = source.get_size();
}

int zipping_channel::check_stored() {
    if (current_->csize == -1)
        current_->csize = current_->size;
    if (current_->csize != current_->size || current_->size == -1 || current_->crc == -1)
        return fail(channel_disagree);
    current_->version = 10;
    current_->flag = zip::flag_descriptor;
    return 1;
}

int zipping_channel::put_next_entry(zip_entry* entry) {
    KM_TRACE_FUNCTION_OFTEN("zipping_channel::put_next_entry");
    if (entry) {
        std::unique_ptr<zip_entry> taken(entry);
        if (!close_entry())
            return 0;
        current_ = std::move(taken);
    }
    // No reader takes an entry without a name.
    if (!current_ || !current_->get_name() || !*current_->get_name())
        return fail(channel_bad_call);
    crc_.reset();
    current_->crc = crc_.get_value();
    complete_from_file();
    if (current_->method == -1)
        current_->method = default_method_;
    if (current_->method == zip_entry::stored) {
        if (!check_stored())
            return 0;
    } else if (current_->method == zip_entry::deflated) {
        current_->flag = current_->csize == -1 || current_->size == -1 ? zip::flag_descriptor : 0;
        current_->version = 20;
    } else {
        return fail(channel_bad_call);
    }
    current_->offset = written_;
    writeLOC();
    data_start_ = written_;
    return status_ == 0;
}

void zipping_channel::write(const unsigned char* buffer, int length) {
    if (!current_) {
        fail(channel_bad_call);
        return;
    }
    if (length < 1)
        return;
    if (status_ == 0 && current_->method == zip_entry::stored) {
        written_ += length;
        if (written_ - data_start_ > current_->size)
            fail(channel_bad_call);
        else
            inner_->write(buffer, length);
    } else if (status_ == 0 && current_->method == zip_entry::deflated) {
        compressing_channel::write(buffer, length);
    } else {
        fail(channel_bad_call);
    }
    if (inner_->get_error())
        fail(channel_disagree);
    crc_.update(buffer, length);
}

int zipping_channel::close_stored() {
    if (current_->size != written_ - data_start_)
        return fail(channel_disagree);
    current_->csize = current_->size;
    current_->crc = crc_.get_value();
    writeEXT();
    return 1;
}

void zipping_channel::note_deflated(long size, long csize, long crc) {
    current_->size = size;
    current_->csize = csize;
    current_->crc = crc;
    writeEXT();
}

int zipping_channel::close_deflated() {
    compressing_channel::finish();
    const long in = static_cast<long>(engine_->total_in() & 0xFFFFFFFFUL);
    const long out = static_cast<long>(engine_->total_out() & 0xFFFFFFFFUL);
    const long real_out = static_cast<long>(engine_->total_out());
    if (current_->flag & zip::flag_descriptor) {
        written_ += real_out;
        note_deflated(in, out, crc_.get_value());
    } else {
        if (current_->size != in || current_->csize != out)
            return fail(channel_disagree);
        written_ += real_out;
    }
    engine_->reset();
    return 1;
}

int zipping_channel::close_entry() {
    if (!current_)
        return 1;
    const int done = current_->method == zip_entry::stored ? close_stored() : close_deflated();
    return done ? end_entry() : 0;
}

int zipping_channel::end_entry() {
    entries_.push_back(current_->clone());
    crc_.reset();
    current_.reset();
    if (inner_->get_error())
        return fail(channel_disagree);
    return written_ > zip::largest ? fail(channel_too_large) : 1;
}

int zipping_channel::put_deflated_entry(zip_entry* entry, const deflated_data& data) {
    entry->method = zip_entry::deflated;
    entry->csize = -1; // it stands in the descriptor
    if (!put_next_entry(entry))
        return 0;
    write_bytes(data.bytes);
    note_deflated(data.size, static_cast<long>(data.bytes.size()), data.crc);
    return end_entry();
}

int zipping_channel::finish() {
    if (finished_)
        return 1;
    finished_ = 1;
    if (!close_entry())
        return 0;
    if (entries_.empty())
        return fail(channel_disagree);
    const long start = written_;
    for (int i = 0; i < entries_.size(); ++i)
        writeCEN(*entries_.at<zip_entry>(i));
    writeEND(start);
    return inner_->get_error() ? fail(channel_disagree) : status_ == 0;
}

void zipping_channel::write_bytes(const std::string& bytes) {
    inner_->write(reinterpret_cast<const unsigned char*>(bytes.data()),
                  static_cast<int>(bytes.size()));
    written_ += static_cast<long>(bytes.size());
    if (inner_->get_error())
        fail(channel_disagree);
}

namespace {
std::string name_in_zip(const zip_entry& entry) {
    return file::convert_to_zip_format(entry.get_name() ? entry.get_name() : "").mbcs_str();
}
} // namespace

void zipping_channel::writeLOC() {
    const std::string name = name_in_zip(*current_);
    std::string out;
    zip::put4(out, zip::local_signature);
    zip::put2(out, current_->version);
    zip::put2(out, zip::flag_descriptor);
    zip::put2(out, current_->method);
    zip::put4(out, current_->time);
    zip::put4(out, 0);
    zip::put4(out, 0);
    zip::put4(out, current_->size);
    zip::put2(out, static_cast<long>(name.size()));
    zip::put2(out, static_cast<long>(current_->extra.size()));
    write_bytes(out + name + current_->extra);
}

void zipping_channel::writeEXT() {
    std::string out;
    zip::put4(out, zip::descriptor_signature);
    zip::put4(out, current_->crc);
    zip::put4(out, current_->csize);
    zip::put4(out, current_->size);
    write_bytes(out);
}

void zipping_channel::writeCEN(const zip_entry& entry) {
    const std::string name = name_in_zip(entry);
    std::string out;
    zip::put4(out, zip::central_signature);
    zip::put2(out, entry.version);
    zip::put2(out, entry.version);
    zip::put2(out, entry.flag);
    zip::put2(out, entry.method);
    zip::put4(out, entry.time);
    zip::put4(out, entry.crc);
    zip::put4(out, entry.csize);
    zip::put4(out, entry.size);
    zip::put2(out, static_cast<long>(name.size()));
    zip::put2(out, static_cast<long>(entry.extra.size()));
    zip::put2(out, static_cast<long>(entry.comment.size()));
    zip::put2(out, 0);
    zip::put2(out, 0);
    zip::put4(out, 0);
    zip::put4(out, entry.offset);
    write_bytes(out + name + entry.extra + entry.comment);
}

void zipping_channel::writeEND(long start) {
    const std::string comment = comment_ ? comment_ : "";
    std::string out;
    zip::put4(out, zip::end_signature);
    zip::put2(out, 0);
    zip::put2(out, 0);
    zip::put2(out, entries_.size());
    zip::put2(out, entries_.size());
    zip::put4(out, written_ - start);
    zip::put4(out, start);
    zip::put2(out, static_cast<long>(comment.size()));
    write_bytes(out + comment);
}

int zipping_channel::copy_file(const pathname& path) {
    buffered_input_channel in(new file_input_channel(path), read_size);
    if (in.get_error())
        return fail(channel_no_source);
    const auto block = std::make_unique<unsigned char[]>(entry_portion);
    int got = 0;
    while (status_ == 0 && (got = in.read(block.get(), entry_portion)) > 0)
        write(block.get(), got);
    if (in.get_error()) {
        KM_TRACE(trace_error, "common", "error returned by file_handle::read()");
        return fail(channel_disagree);
    }
    if (status_)
        KM_TRACE(trace_error, "common", "zipping error %d", status_);
    return status_ == 0;
}

int zipping_channel::add(const pathname& path, int compress, const char* name, int with_size) {
    KM_TRACE_FUNCTION("zipping_channel::add");
    file source(path);
    if (!source.exists())
        return fail(channel_no_source);
    if (!close_entry())
        return 0;
    current_ = name ? std::make_unique<zip_entry>(name) : std::make_unique<zip_entry>(path);
    current_->method = compress ? zip_entry::deflated : zip_entry::stored;
    current_->extra.clear();
    current_->flag = zip::flag_descriptor;
    if (with_size)
        current_->size = source.get_size();
    if (!put_next_entry(nullptr)) {
        KM_TRACE(trace_error, "common", "error returned by put_next_entry()");
        return 0;
    }
    return source.is_directory() ? 1 : copy_file(path);
}

} // namespace km
