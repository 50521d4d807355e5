// package_file: package files, checked and opened
// format: docs/formats/package-file.md
// invariants: nothing of a file is acted on before all of it was checked; memory does not grow with
// what a file claims
#include "package_file.h"

#include "data_entry.h"
#include "digest.h"
#include "file_channel.h"
#include "messages.h"
#include "open_file.h"
#include "package_stream.h"
#include "signatures.h"
#include "sp_object.h"
#include "tree_memory.h"
#include "user_variables.h"
#include "variable_file.h"
#include "words.h"
#include "zip_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kmhost {

const char* const digest_mark = "km package, sha256 ";

namespace {

constexpr size_t digest_length = 64;
constexpr long longest_tree = 128L << 20; // coded bytes; about a quarter of a million files

// Digest of the first `length` bytes; empty, with errno, on failure.
std::string digest_of_head(int file, long length) {
    km::sha256 sum;
    static char block[1 << 17];
    long at = 0;
    while (at < length) {
        const ssize_t got = ::pread(
            file, block, static_cast<size_t>(std::min<long>(length - at, sizeof block)), at);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return {};
        sum.add(block, static_cast<size_t>(got));
        at += got;
    }
    return sum.finish();
}

bool invalid(outcome& result, const std::string& path, const std::string& why) {
    result.fail(exit_invalid, "invalid_package",
                path + " is not a package file, or it is damaged: " + why +
                    ". Nothing was changed.");
    return false;
}

bool digest_fits(const std::string& path, const std::string& told) {
    const km::open_file in(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat about {};
    if (in.get() < 0 || ::fstat(in.get(), &about) != 0)
        return false;
    return digest_of_head(in.get(), about.st_size - static_cast<long>(digest_length)) == told;
}

// Without a digest every entry is read once, so that its checksum is compared.
bool entries_are_whole(const std::string& path, const km::vector& directory, outcome& result) {
    km::file_input_channel in{km::pathname(path.c_str())};
    in.inhibit(1);
    km::unzipping_channel zip(&in);
    zip.set_skip_tail(0);
    static unsigned char block[1 << 16];
    for (int i = 0; i < directory.size(); ++i) {
        const auto* told = directory.at<km::zip_entry>(i);
        const km::zip_entry* entry = zip.get_next_entry();
        if (!entry || !told || std::strcmp(entry->get_name(), told->get_name()) != 0)
            return invalid(result, path, "its entries are not those of its directory");
        const std::string name = entry->get_name();
        km::CRC32 sum;
        long size = 0;
        for (int got; (got = zip.read(block, sizeof block)) >= 0; size += got)
            sum.update(block, got);
        if (zip.get_error() || size != told->size || sum.get_value() != told->crc)
            return invalid(result, path, "the data of its entry " + name + " are not whole");
    }
    return true;
}

bool is_readable_file(const std::string& path, outcome& result) {
    struct stat about {};
    const km::open_file in(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (in.get() < 0 || ::fstat(in.get(), &about) != 0) {
        const int error = errno;
        result.fail(error == ENOENT ? exit_not_found : exit_failed, "file",
                    path + " cannot be opened: " + std::strerror(error) + ".");
        return false;
    }
    if (S_ISREG(about.st_mode))
        return true;
    return invalid(result, path, "it is no regular file");
}

// Ends a tree that is longer than any package needs: a small file may claim, and inflate to,
// anything.
class bounded_channel : public km::input_channel {
  public:
    explicit bounded_channel(km::input_channel& inner) : inner_(inner) {}
    using km::input_channel::read;
    int read() override { return left_-- > 0 ? inner_.read() : -1; }
    int read(unsigned char* buffer, int length) override {
        if (left_ <= 0)
            return -1;
        const int got = inner_.read(buffer, static_cast<int>(std::min<long>(length, left_)));
        left_ -= std::max(got, 0);
        return got;
    }
    int get_error() override { return left_ > 0 ? inner_.get_error() : km::channel_too_large; }

  private:
    km::input_channel& inner_;
    long left_ = longest_tree;
};

class sequence {
  public:
    explicit sequence(const std::vector<std::string>& texts) : texts_(texts) {
        for (auto& text : texts_)
            pointers_.push_back(text.data());
        all.length = pointers_.size();
        all.buffer = pointers_.data();
    }
    km::_sequence_string all;

  private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

} // namespace

opened_package::~opened_package() {
    package.reset(); // it lends the reader
    km::end_data_ahead();
    if (stream)
        stream->force_close(); // nobody wants the rest of an entry
    if (reader)
        reader->set_skip_tail(0);
}

int stamp_package_file(const std::string& path) {
    const km::open_file file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    struct stat about {};
    if (file.get() < 0 || ::fstat(file.get(), &about) != 0)
        return 0;
    const long length = about.st_size - static_cast<long>(digest_length);
    const std::string digest = digest_of_head(file.get(), length);
    if (digest.size() != digest_length)
        return 0;
    return ::pwrite(file.get(), digest.data(), digest.size(), length) ==
           static_cast<ssize_t>(digest.size());
}

namespace {
// As below; the entries of the file go to `directory`.
bool check_and_list(const std::string& path, std::unique_ptr<km::vector>& directory,
                    outcome& result) {
    if (!is_readable_file(path, result))
        return false;
    km::zip_file zip(path.c_str());
    if (!zip.readCEN())
        return invalid(result, path, "it has no whole directory at its end");
    directory.reset(zip.getCEN());
    const auto* first = directory->at<km::zip_entry>(0);
    if (!first || !first->get_name() || std::strcmp(first->get_name(), "SoftwarePackage") != 0)
        return invalid(result, path, "its first entry is not a package");
    const std::string& comment = zip.get_comment();
    const size_t mark = std::strlen(digest_mark);
    if (comment.size() == mark + digest_length && comment.compare(0, mark, digest_mark) == 0) {
        if (digest_fits(path, comment.substr(mark)))
            return true;
        return invalid(result, path, "its content does not have the digest that it tells");
    }
    return entries_are_whole(path, *directory, result);
}
} // namespace

bool has_digest(const std::string& path, const std::string& expected, outcome& result) {
    if (!is_readable_file(path, result))
        return false;
    const km::open_file in(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const std::string found = in.get() < 0 ? "" : km::digest_of_open_file(in.get());
    if (found == expected)
        return true;
    if (found.empty())
        result.fail(exit_failed, "file", path + " cannot be read: " + std::strerror(errno) + ".");
    else
        result.fail(exit_invalid, "digest",
                    path + " is another file than expected: its SHA-256 is " + found + ", not " +
                        expected + ". Nothing was changed.");
    return false;
}

bool check_package_file(const std::string& path, outcome& result) {
    std::unique_ptr<km::vector> directory;
    return check_and_list(path, directory, result);
}

bool open_package(const std::string& path, const std::vector<std::string>& definitions,
                  km::spmessage& messages, opened_package& opened, outcome& result,
                  int substitute) {
    if (is_address(path))
        return open_stream(path, nullptr, 0, opened, result) &&
               decode_package(path, definitions, messages, opened, result, substitute);
    std::unique_ptr<km::vector> directory;
    if (!check_and_list(path, directory, result))
        return false;
    opened.reader = std::make_unique<km::unzipping_channel>(
        new km::file_input_channel(km::pathname(path.c_str())));
    opened.reader->set_skip_tail(0);
    if (const auto* tree = directory->at<km::zip_entry>(0))
        expect_tree(tree->csize);
    km::begin_data_ahead(opened.reader.get(), path.c_str(), *directory);
    return decode_package(path, definitions, messages, opened, result, substitute);
}

bool decode_package(const std::string& path, const std::vector<std::string>& definitions,
                    km::spmessage& messages, opened_package& opened, outcome& result,
                    int substitute) {
    if (substitute && !check_variable_files(result))
        return false;
    const km::zip_entry* first = opened.reader->get_next_entry();
    if (opened.stream && opened.stream->get_error())
        return tell_fault(*opened.stream, path, result);
    if (!first)
        return invalid(result, path, "its first entry cannot be read");
    if (std::strcmp(first->get_name(), "SoftwarePackage") != 0)
        return invalid(result, path, "its first entry is not a package");
    km::spmessage of_decoding;
    km::sp_object reader(&of_decoding);
    sequence given(definitions);
    reader.command_line_variables = &given.all;
    bounded_channel bounded(*opened.reader);
    reader.whole_channel = 1;
    km::cm_package* read = nullptr;
    reader.decode(read, &bounded, substitute, km::sp_object::either);
    opened.package.reset(read);
    if (!opened.package)
        return invalid(
            result, path,
            reader.invalid_signature
                ? "its signature is not one of a package"
                : "its tree of commands cannot be read, or needs a class that is not here");
    const package_id id{opened.package->name.mbcs_str(), opened.package->version.mbcs_str()};
    const std::string fault =
        fault_of_name(id.name).empty() ? fault_of_version(id.version) : fault_of_name(id.name);
    if (!fault.empty())
        return invalid(result, path, "it is called " + id.text() + ", and " + fault);
    if (opened.reader->current_entry() && !opened.reader->close_entry())
        return invalid(result, path, "its first entry is not whole");
    opened.package->set_error_message(&messages);
    opened.package->input_channel = opened.reader.get(); // at a border: an offset is noted of it
    opened.package->source_path = km::pathname(path.c_str());
    opened.package->connected = 0;
    return true;
}

std::unique_ptr<km::cm_package> open_profile(const std::string& path, km::spmessage& messages,
                                             outcome& result) {
    km::spmessage of_decoding;
    km::sp_object reader(&of_decoding);
    km::cm_package* read = nullptr;
    struct stat about {};
    if (::stat(path.c_str(), &about) == 0)
        expect_tree(about.st_size);
    reader.decode(read, km::pathname(path.c_str()), 1, km::sp_object::either);
    std::unique_ptr<km::cm_package> package(read);
    if (!package) {
        result.fail(exit_failed, "profile",
                    "The profile " + path +
                        " of the package cannot be read. 'kmctl install --force FILE' makes a new "
                        "one from the package file.");
        return nullptr;
    }
    package->set_error_message(&messages);
    package->connected = 0;
    return package;
}

} // namespace kmhost
