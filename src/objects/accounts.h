// accounts: users and groups, by name or number
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace km {

struct account {
    uid_t user = 0;
    gid_t group = 0;
    std::string name; // empty for a number that no account has
    std::string home = "/";
    std::string shell = "/bin/sh";
    std::vector<gid_t> groups; // all that it is in
};

// The account of that name or number; below a target root those of its /etc/passwd and /etc/group.
// A number without an account has itself as its group. False: the name is unknown.
bool find_account(const std::string& name_or_number, account& found);

// Number of a user or a group of this machine, whatever the target root. False: the name is
// unknown.
bool user_number(const std::string& name_or_number, long& number);
bool group_number(const std::string& name_or_number, long& number);

} // namespace km
