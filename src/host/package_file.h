// package_file: package files, checked and opened
#pragma once

#include "http_stream.h"
#include "outcome.h"
#include "package.h"

#include <memory>
#include <string>
#include <vector>

namespace kmhost {

// What stands in front of the digest in the comment of a package file.
extern const char* const digest_mark;

// Writes into the comment of a finished package file the digest of all bytes in front of it. 1, or
// 0 with errno.
int stamp_package_file(const std::string& path);

// A package with its open file, or the stream from its server. The tree is decoded; the reader
// stands behind it.
struct opened_package {
    std::unique_ptr<km::cm_package> package;
    bool wants_digest = false;             // set it before: of all bytes of a stream
    std::unique_ptr<stream_digest> digest; // those two are null for a file
    std::unique_ptr<http_stream> stream;
    std::unique_ptr<km::unzipping_channel> reader;
    ~opened_package();
    opened_package() = default;
    opened_package(const opened_package&) = delete;
    opened_package& operator=(const opened_package&) = delete;
};

// Checks every byte of the file before any of it is believed: the digest in its comment, or where
// there is none the checksum of every entry. False: `result` says what is wrong (exit 3 no such
// file, 6 no package file or a damaged one, 1 not to be read).
bool check_package_file(const std::string& path, outcome& result);

// Decodes the tree behind a reader in front of its first entry, as open_package does.
bool decode_package(const std::string& path, const std::vector<std::string>& definitions,
                    km::spmessage& messages, opened_package& opened, outcome& result,
                    int substitute);

// Checks the file and decodes its tree; of an address, which no check can go ahead of, only the
// tree is read (package_stream). `definitions` are texts NAME=VALUE. The package's messages go to
// `messages` (lent). With `substitute` 0 references to variables stay in its texts. False: `result`
// says why.
bool open_package(const std::string& path, const std::vector<std::string>& definitions,
                  km::spmessage& messages, opened_package& opened, outcome& result,
                  int substitute = 1);

// Whether the file, which is no address, has that digest. False: `result` says that it has not, or
// why it cannot be read.
bool has_digest(const std::string& path, const std::string& expected, outcome& result);

// Decodes a profile. Null: `result` says why.
std::unique_ptr<km::cm_package> open_profile(const std::string& path, km::spmessage& messages,
                                             outcome& result);

} // namespace kmhost
