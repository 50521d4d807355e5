// write_package: a package file, written beside its place
// format: docs/formats/package-file.md
// invariant: the output is replaced whole or not at all
#include "write_package.h"

#include "durable.h"
#include "messages.h"
#include "package_file.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace kmhost {

bool write_package(const std::string& output, bool stored, const km::spmessage& messages,
                   outcome& result,
                   const std::function<km::cm_result(km::zipping_channel&)>& save) {
    const std::string temporary = output + ".new";
    km::file_output_channel out(km::pathname(temporary.c_str()), 0);
    if (out.get_error()) {
        result.fail(exit_failed, "output",
                    temporary + " cannot be made: " +
                        std::strerror(out.get_handle().get_system_error()) + ".");
        return false;
    }
    out.set_sync_data(0); // rename_durably flushes the whole, once
    constexpr int block_size = 1 << 16;
    km::buffered_output_channel blocks(&out, block_size);
    const std::string comment = digest_mark + std::string(64, '0');
    km::zipping_channel zip(&blocks);
    zip.set_comment(comment.c_str());
    zip.set_method(stored ? km::zip_entry::stored : km::zip_entry::deflated);
    const auto saved = save(zip);
    blocks.close(); // with the file below
    const int write_error = out.get_error() ? out.get_handle().get_system_error() : 0;
    const bool good =
        saved == km::cm_command::success && !out.get_error() &&
        ::chmod(temporary.c_str(), 0644) == 0 && stamp_package_file(temporary) &&
        km::rename_durably(km::pathname(temporary.c_str()), km::pathname(output.c_str()));
    const int error = write_error ? write_error : errno;
    take_messages(messages, result);
    if (good)
        return true;
    ::unlink(temporary.c_str());
    result.fail(exit_failed, "build",
                messages.get_count()
                    ? "No package was written."
                    : output + " cannot be written: " + std::strerror(error) + ".");
    return false;
}

} // namespace kmhost
