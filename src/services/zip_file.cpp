// zip_file: central directory of a zip container
// format: docs/formats/zip.md
// invariant: every number of the directory is compared with what the file really holds
#include "zip_file.h"

#include "detail_zip_bytes.h"
#include "trclog.h"

#include <algorithm>
#include <fcntl.h>
#include <memory>

namespace km {

namespace {
// The longest comment and the record in front of it.
constexpr long longest_end = 0x10015;
} // namespace

zip_file::zip_file(const char* path) : file_handle(pathname(path), O_RDONLY) {}

int zip_file::checkEND(const unsigned char* record, long at, long block_size, long file_size,
                       long& length, long& offset) const {
    if (at + zip::end_size > block_size)
        return 0;
    length = zip::get4(record + 12);
    offset = zip::get4(record + 16);
    const long comment = zip::get2(record + 20);
    return offset + length + zip::end_size + comment == file_size &&
           at + zip::end_size + comment <= block_size;
}

int zip_file::readCEN() {
    KM_TRACE_FUNCTION("zip_file::readCEN");
    const long size = filelength();
    KM_TRACE(trace_info, "common", "max_endsig_len=%lu size=%lu",
             static_cast<unsigned long>(longest_end), static_cast<unsigned long>(size));
    const long block_size = std::min(std::max(size, 0L), longest_end);
    std::string block(static_cast<size_t>(block_size), '\0');
    move_from_start(size - block_size);
    if (!read(block.data(), block.size()) ||
        get_bytes_read() != static_cast<unsigned long>(block_size)) {
        KM_TRACE(trace_error, "common", "read error errno=%d", get_system_error());
        return 0;
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(block.data());
    for (long at = block_size - zip::end_size; at >= 0; --at) {
        long length = 0, offset = 0;
        if (zip::get4(bytes + at) != zip::end_signature ||
            !checkEND(bytes + at, at, block_size, size, length, offset))
            continue;
        KM_TRACE(trace_info, "common", "ENDSIG found, entries=%lu len=%lu off=%lu",
                 static_cast<unsigned long>(zip::get2(bytes + at + 10)),
                 static_cast<unsigned long>(length), static_cast<unsigned long>(offset));
        set_comment(block.data() + at + zip::end_size,
                    static_cast<unsigned long>(zip::get2(bytes + at + 20)));
        return readEntries(length, offset);
    }
    return 0;
}

// The directory's place and length were compared with the file's, so the memory is bounded by it.
int zip_file::readEntries(long length, long offset) {
    std::string block(static_cast<size_t>(length), '\0');
    move_from_start(offset);
    if (!read(block.data(), block.size()) ||
        get_bytes_read() != static_cast<unsigned long>(length)) {
        KM_TRACE(trace_error, "common", "read error errno=%d", get_system_error());
        return 0;
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(block.data());
    entries_.clear();
    for (long at = 0; at + zip::central_size <= length;) {
        const unsigned char* head = bytes + at;
        if (zip::get4(head) != zip::central_signature)
            break;
        const long name = zip::get2(head + 28), extra = zip::get2(head + 30),
                   comment = zip::get2(head + 32);
        if (at + zip::central_size + name + extra + comment > length)
            return 0;
        auto entry = std::make_unique<zip_entry>();
        entry->version = zip::get2(head + 6);
        entry->flag = zip::get2(head + 8);
        entry->method = zip::get2(head + 10);
        entry->time = zip::get4(head + 12);
        entry->crc = zip::get4(head + 16);
        entry->csize = zip::get4(head + 20);
        entry->size = zip::get4(head + 24);
        entry->offset = zip::get4(head + 42);
        entry->error = comment ? 3 : 0;
        const char* text = block.data() + at + zip::central_size;
        entry->set_raw_name(std::string(text, static_cast<size_t>(name)));
        entry->extra.assign(text + name, static_cast<size_t>(extra));
        entries_.push_back(entry.release());
        at += zip::central_size + name + extra + comment;
    }
    return 1;
}

} // namespace km
