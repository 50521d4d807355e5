// accounts: users and groups, by name or number
// no format
// invariant: below a target root no account of this machine is taken for one of the root
#include "accounts.h"

#include "target_root.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <grp.h>
#include <memory>
#include <pwd.h>
#include <unistd.h>

namespace km {

namespace {

bool as_number(const std::string& text, long& number) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    errno = 0;
    number = std::strtol(text.c_str(), nullptr, 10);
    return errno == 0 && number <= INT_MAX;
}

struct closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using account_file = std::unique_ptr<std::FILE, closer>;

account_file open_account_file(const char* path) {
    const int in = open_for_reading(path);
    if (in < 0)
        return nullptr;
    account_file file(::fdopen(in, "re"));
    if (!file)
        ::close(in);
    return file;
}

void take(const passwd& from, account& found) {
    found.user = from.pw_uid;
    found.group = from.pw_gid;
    found.name = from.pw_name;
    found.home = from.pw_dir && *from.pw_dir ? from.pw_dir : "/";
    found.shell = from.pw_shell && *from.pw_shell ? from.pw_shell : "/bin/sh";
}

bool find_in_root(const std::string& name, long number, account& found) {
    const account_file file = open_account_file("/etc/passwd");
    while (const passwd* one = file ? ::fgetpwent(file.get()) : nullptr) {
        if (number >= 0 ? one->pw_uid == static_cast<uid_t>(number) : name == one->pw_name) {
            take(*one, found);
            return true;
        }
    }
    return false;
}

void groups_in_root(account& of) {
    const account_file file = open_account_file("/etc/group");
    while (const group* one = file ? ::fgetgrent(file.get()) : nullptr)
        for (char** member = one->gr_mem; member && *member; ++member)
            if (of.name == *member && one->gr_gid != of.group)
                of.groups.push_back(one->gr_gid);
}

void groups_here(account& of) {
    int count = 32;
    of.groups.resize(static_cast<size_t>(count));
    if (::getgrouplist(of.name.c_str(), of.group, of.groups.data(), &count) < 0) {
        of.groups.resize(static_cast<size_t>(count));
        ::getgrouplist(of.name.c_str(), of.group, of.groups.data(), &count);
    }
    of.groups.resize(static_cast<size_t>(count));
}

} // namespace

bool find_account(const std::string& name_or_number, account& found) {
    found = {};
    long number = -1;
    as_number(name_or_number, number);
    const bool in_root = !get_target_root().empty();
    if (in_root) {
        find_in_root(name_or_number, number, found);
    } else if (const passwd* one = number >= 0 ? ::getpwuid(static_cast<uid_t>(number))
                                               : ::getpwnam(name_or_number.c_str())) {
        take(*one, found);
    }
    if (found.name.empty()) {
        if (number < 0)
            return false;
        found.user = static_cast<uid_t>(number);
        found.group = static_cast<gid_t>(number);
        found.groups = {found.group};
        return true;
    }
    found.groups = {found.group};
    if (in_root)
        groups_in_root(found);
    else
        groups_here(found);
    return true;
}

bool user_number(const std::string& name_or_number, long& number) {
    if (as_number(name_or_number, number))
        return true;
    const passwd* one = ::getpwnam(name_or_number.c_str());
    if (one)
        number = static_cast<long>(one->pw_uid);
    return one;
}

bool group_number(const std::string& name_or_number, long& number) {
    if (as_number(name_or_number, number))
        return true;
    const group* one = ::getgrnam(name_or_number.c_str());
    if (one)
        number = static_cast<long>(one->gr_gid);
    return one;
}

} // namespace km
