// package_file: package files, checked and opened
#pragma once

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

// A package with its open file. The tree is decoded; the reader stands behind it.
struct opened_package {
    std::unique_ptr<km::cm_package> package;
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

// Checks the file and decodes its tree; `definitions` are texts NAME=VALUE. The package's messages
// go to `messages` (lent). With `substitute` 0 references to variables stay in its texts. False:
// `result` says why.
bool open_package(const std::string& path, const std::vector<std::string>& definitions,
                  km::spmessage& messages, opened_package& opened, outcome& result,
                  int substitute = 1);

// Decodes a profile. Null: `result` says why.
std::unique_ptr<km::cm_package> open_profile(const std::string& path, km::spmessage& messages,
                                             outcome& result);

} // namespace kmhost
