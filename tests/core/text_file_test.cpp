// Text files and locks among processes.
#include "lockfile.h"
#include "shared_file_counter.h"
#include "text_file.h"

#include "support/scratch.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using km::pathname;
using km::semaphore;
using km::text_file;
using km::ustring;

namespace {

struct TextFile : testing::Test {
    pathname path(const char* name) const { return pathname(dir.at(name).c_str()); }
    km_test::scratch_dir dir;
};
using Semaphore = TextFile;

ustring word(const char* text) { return ustring(text); }

// A child that holds the lock until it is killed.
pid_t holder(const pathname& name) {
    int ready[2];
    if (::pipe(ready) != 0)
        return -1;
    const pid_t child = ::fork();
    if (child == 0) {
        semaphore lock(name, 0);
        const char result = lock.wait2(5) == semaphore::acquired ? 'y' : 'n';
        if (::write(ready[1], &result, 1) != 1)
            ::_exit(1);
        ::pause();
        ::_exit(0);
    }
    char result = 0;
    const bool told = ::read(ready[0], &result, 1) == 1 && result == 'y';
    ::close(ready[0]);
    ::close(ready[1]);
    return told ? child : -1;
}

void end(pid_t child) {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

} // namespace

TEST_F(TextFile, EditsByPatternAndPositionReachTheDiskWhole) {
    dir.write("f", "  first\t\nmid one\nmid two\nlast");
    text_file text(path("f"));
    ASSERT_EQ(text.read(), 1);
    text.add_line(word("end"));
    text.add_line(word("start"), text_file::at_start);
    text.add_line(word("before-first"), text_file::before_first, word("mid*"));
    text.add_line(word("before-last"), text_file::before_last, word("mid*"));
    text.add_line(word("after-first"), text_file::after_first, word("mid one"));
    text.add_line(word("after-none"), text_file::after_last, word("none"));
    text.add_line(word("before-none"), text_file::before_last, word("none"));
    EXPECT_EQ(text.remove_line(word("last")), 1);
    EXPECT_EQ(text.commit_changes(), 1);
    EXPECT_EQ(dir.read("f"), "before-none\nstart\nfirst\nbefore-first\nmid one\nafter-first\n"
                             "before-last\nmid two\nend\nafter-none\n");
    EXPECT_EQ(text[1000].checksum(), ~0U);
}

TEST_F(TextFile, CommandsAndTheirTokens) {
    dir.write("f", "names=1\nname  =  value\nPATH = /a:/b:/a\n");
    text_file text(path("f"));
    text.read();
    EXPECT_EQ(text.find_command(word("name")), 1);
    EXPECT_EQ(text[1].get_command_text(word("name")), word("value"));
    EXPECT_EQ(text[1].get_command_key(word("name")), word("name  =  "));
    EXPECT_EQ(text[1].get_command_name(), word("name"));
    EXPECT_TRUE(text.token_exists(word("PATH"), word(":/b:")));
    text.add_token(word("PATH"), word("/b"), text_file::at_end, ustring());
    text.add_token(word("PATH"), word("/first"), text_file::at_start, ustring());
    text.remove_token(word("PATH"), word("/a"), text_file::at_end);
    text.add_token(word("NEW"), word("x"), text_file::at_end, ustring());
    text.replace_command(word("name"), word("val"), word("name=other"), 0, ustring());
    text.commit_changes();
    EXPECT_EQ(dir.read("f"), "names=1\nname=other\nPATH = /first:/a:/b\nNEW=x\n");
}

TEST_F(TextFile, TheLastLineTakesTheFileWithIt) {
    dir.write("f", "only\n");
    text_file text(path("f"));
    text.read();
    text.remove_line(word("only"));
    EXPECT_EQ(text.commit_changes(), 1);
    EXPECT_FALSE(dir.exists("f"));
}

TEST_F(TextFile, AForcedReadTakesWhatTheDiskHoldsNow) {
    dir.write("f", "old\n");
    text_file text(path("f"));
    text.read();
    text.add_line(word("edit"));
    dir.write("f", "new\n");
    EXPECT_EQ(text.read(), 1);
    EXPECT_EQ(text.line_count(), 2); // not forced
    EXPECT_EQ(text.read(1), 1);
    EXPECT_EQ(text.line_count(), 1);
    EXPECT_TRUE(text.line_exists(word("new")));
    EXPECT_EQ(text.is_changed(), 0);
    ::unlink(dir.at("f").c_str());
    EXPECT_EQ(text.read(1), 1);
    EXPECT_EQ(text.line_count(), 0);
    // A directory can be opened and not read: what is in memory stays.
    text.add_line(word("kept"));
    ::mkdir(dir.at("f").c_str(), 0755);
    EXPECT_EQ(text.read(1), 0);
    EXPECT_EQ(text.line_count(), 1);
    EXPECT_EQ(text.is_changed(), 1);
}

TEST_F(TextFile, WhatCannotBeWrittenStaysToBeWritten) {
    text_file text(path("none/f"));
    text.read();
    text.add_line(word("x"));
    EXPECT_EQ(text.commit_changes(), 0);
    EXPECT_EQ(text.is_changed(), 1);
    ::mkdir(dir.at("none").c_str(), 0755);
    EXPECT_EQ(text.commit_changes(), 1);
    EXPECT_EQ(dir.read("none/f"), "x\n");
}

TEST_F(Semaphore, OneProcessHoldsItAndItsDeathFreesIt) {
    const pathname name = path("Data.ini");
    const pid_t child = holder(name);
    ASSERT_GT(child, 0);
    semaphore lock(name, 0);
    EXPECT_EQ(lock.get_lock_file(), path("Data.ini.sem"));
    EXPECT_EQ(dir.read("Data.ini.sem").find(std::to_string(child) + " "), 0u);
    EXPECT_EQ(lock.wait2(0), semaphore::timed_out);
    EXPECT_EQ(lock._IsLocked(), 1);
    EXPECT_EQ(lock.trylock(), semaphore::timed_out);
    end(child);
    EXPECT_EQ(lock.wait2(0), semaphore::acquired);
    EXPECT_EQ(lock.wait2(-1), semaphore::acquired);
    EXPECT_EQ(lock.signal(), 1);
    EXPECT_FALSE(dir.exists("Data.ini.sem"));
    EXPECT_EQ(lock.signal(), 1);
}

TEST_F(Semaphore, TwoObjectsOfOneProcessExcludeEachOther) {
    const pathname name = path("x");
    semaphore first(name, 0);
    ASSERT_EQ(first.wait2(0), semaphore::acquired);
    semaphore second(name, 0);
    EXPECT_EQ(second.wait2(0), semaphore::timed_out);
    EXPECT_EQ(second._IsLocked(), 1);
    EXPECT_EQ(first.is_held(), 1); // asking did not drop it
    EXPECT_EQ(second.wait2(0), semaphore::timed_out);
    first.signal();
    EXPECT_EQ(second.wait2(0), semaphore::acquired);
}

TEST_F(Semaphore, ALockThatCannotBeMadeFails) {
    semaphore lock(pathname("/proc/none/x"), 0);
    EXPECT_EQ(lock.wait2(0), semaphore::failed);
}

TEST(SharedFileCounter, CountsNothingHere) {
    EXPECT_EQ(km::shared_file_counter::get_counter(word("f")), 0);
    EXPECT_EQ(km::shared_file_counter::inc_counter(word("f"), 1), 1);
    km::shared_file_counter::resize_table();
    km::shared_file_counter::resize_table();
    EXPECT_EQ(km::shared_file_counter::get_table_size(), 2u);
}
