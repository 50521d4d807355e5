// The map kept in a file: bytes, damaged logs, rewriting.
#include "persistent_hashtable.h"
#include "ustring.h"

#include "support/engine_home.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

using namespace std::string_literals;
using km::pathname;
using km::Persistent_Hashtable;
using km::ustring;

namespace {

class Table : public testing::Test {
  protected:
    pathname path() const { return pathname(dir_.at("t.pht").c_str()); }
    std::string bytes() const { return dir_.read("t.pht"); }
    void set_bytes(const std::string& bytes) { dir_.write("t.pht", bytes); }

    static void put(Persistent_Hashtable& table, const char* key, const char* value) {
        auto *k = new ustring(key), *v = new ustring(value);
        if (!table.put(k, v)) {
            ADD_FAILURE() << "put " << key;
            delete k;
            delete v;
        }
    }
    static void update(Persistent_Hashtable& table, const char* key, const std::string& value) {
        EXPECT_EQ(table.update(new ustring(key), new ustring(value.c_str())), 1);
    }
    static void remove(Persistent_Hashtable& table, const char* key) {
        const ustring k(key);
        EXPECT_EQ(table.remove(&k), 1);
    }
    static std::string get(const Persistent_Hashtable& table, const char* key) {
        const auto* value = table.get_as<ustring>(ustring(key));
        return value ? value->mbcs_str() : "absent";
    }
    // Opens the file as it stands and asks for one value; "error n" if it does not open.
    std::string reopened(const char* key) {
        Persistent_Hashtable table(path(), 0, 0, nullptr);
        return table.get_table_error() ? "error " + std::to_string(table.get_table_error())
                                       : get(table, key);
    }
    km_test::engine_home home_;
    const km_test::scratch_dir& dir_ = home_.dir;
};

std::string coded(const char* text) {
    const std::string name = "com.ombrel.sd.cmObjects.ustring", body = text;
    return "\1\0"s + static_cast<char>(name.size()) + name + "\0\0\0\1\0\1\x08\0"s +
           static_cast<char>(body.size()) + body + "\xFF\xFF"s;
}

std::string slot(const char* key, const char* value, const char* mark = "\xCC\xCC",
                 const char* status = "\xBB\xBB") {
    const std::string data = coded(key) + coded(value);
    return std::string(mark, 2) + static_cast<char>(data.size()) + "\0\0\0"s +
           std::string(status, 2) + data;
}

const std::string file_head = "PHT\xAA\xAA\0\0\0\0"s;

} // namespace

TEST_F(Table, GoldenBytes) {
    Persistent_Hashtable table(path(), 1, 0, nullptr);
    EXPECT_EQ(bytes(), file_head);
    put(table, "k", "one");
    EXPECT_EQ(bytes(), file_head + slot("k", "one"));
    update(table, "k", "two");
    remove(table, "k");
    EXPECT_EQ(bytes(), file_head + slot("k", "one") + slot("k", "two", "\xCC\xCC", "\xEE\xEE"));
    EXPECT_TRUE(dir_.exists("t.pht.sem"));
}

TEST_F(Table, ChangesSurviveAndTheLaterSlotWins) {
    {
        Persistent_Hashtable table(path(), 0, 0, nullptr);
        for (int i = 0; i < 40; ++i)
            put(table, ("k" + std::to_string(i)).c_str(), "v");
        update(table, "k7", "new");
        update(table, "fresh", "x");
        remove(table, "k8");
        remove(table, "never there");
        put(table, "k8", "again");
        const std::string before = bytes();
        ustring key("k7"), value("refused");
        EXPECT_EQ(table.put(&key, &value), 0);
        EXPECT_EQ(bytes(), before);
    }
    Persistent_Hashtable table(path(), 0, 0, nullptr);
    EXPECT_EQ(table.size(), 41);
    EXPECT_EQ(get(table, "k7"), "new");
    EXPECT_EQ(get(table, "k8"), "again");
    EXPECT_EQ(get(table, "fresh"), "x");
    EXPECT_GT(table.get_free_size(), 0u);
}

TEST_F(Table, TornTailsAreNoCorruption) {
    const std::string good = file_head + slot("a", "1");
    const std::string tails[] = {"",
                                 "\xCC"s,
                                 slot("b", "2", "\xFF\xFF"),
                                 slot("b", "2", "\xFF\xFF").substr(0, 20),
                                 "\0\0"s,
                                 std::string(50, '\0'),
                                 "\xCC\xCC\0\0"s};
    for (const auto& tail : tails) {
        set_bytes(good + tail);
        EXPECT_EQ(reopened("a"), "1") << tail.size();
        EXPECT_EQ(reopened("b"), "absent");
        Persistent_Hashtable table(path(), 0, 0, nullptr);
        put(table, "c", "3"); // shorter than what stood there: nothing of it may stay behind
        EXPECT_EQ(bytes(), good + slot("c", "3")) << tail.size();
    }
}

TEST_F(Table, CorruptionIsToldAndNothingIsTouched) {
    const std::string good = file_head + slot("a", "1"), whole = slot("b", "2");
    const std::string cases[] = {good + whole.substr(0, whole.size() - 3),
                                 good + slot("b", "2", "\xCC\xCC", "\x12\x34"),
                                 "PHX" + good.substr(3),
                                 "PHT\x11\x11" + good.substr(5),
                                 "PHT",
                                 good + "\xCC\xCC\x10\0\0\0\xBB\xBB\7garbage"s};
    for (const auto& bad : cases) {
        set_bytes(bad);
        Persistent_Hashtable table(path(), 0, 0, nullptr);
        EXPECT_EQ(table.get_table_error(), Persistent_Hashtable::corrupted);
        EXPECT_EQ(table.update(new ustring("x"), new ustring("y")), 0);
        const ustring key("a");
        EXPECT_EQ(table.remove(&key), 0);
        EXPECT_EQ(bytes(), bad);
    }
}

TEST_F(Table, DeadSlotsAreReclaimedAndCopiesAreCompact) {
    {
        Persistent_Hashtable table(path(), 1, 0, nullptr);
        put(table, "keep", "kept");
        for (int i = 0; i < 300; ++i)
            update(table, "busy", std::to_string(i));
        EXPECT_LE(table.get_free_size(), 10200u);
        remove(table, "busy");
        table.set_free_threshold(10);
        put(table, "x", "1");
        remove(table, "x");
        EXPECT_EQ(bytes(), file_head + slot("keep", "kept"));
        put(table, "y", "2");
    }
    EXPECT_EQ(reopened("y"), "2");
    set_bytes(file_head + slot("a", "1", "\xCC\xCC", "\xEE\xEE") + slot("b", "2"));
    pathname target(dir_.at("copy.pht").c_str());
    Persistent_Hashtable source(path(), 0, 0, &target);
    EXPECT_EQ(dir_.read("copy.pht"), file_head + slot("b", "2"));
}

TEST_F(Table, AHeldTableAndAnUnopenableOneAreTold) {
    dir_.write("plain", "");
    Persistent_Hashtable table(pathname(dir_.at("plain/x").c_str()), 0, 0, nullptr);
    EXPECT_EQ(table.get_table_error(), Persistent_Hashtable::cannot_open);
    EXPECT_EQ(Persistent_Hashtable::recover(pathname(dir_.at("none").c_str())), 1);
}

TEST_F(Table, RecoveryCutsOnlyWhatAgrees) {
    const std::string log = slot("a", "1") + slot("b", "2");
    const std::string offset = {static_cast<char>(9 + log.size()), '\0', '\0', '\0'};
    const std::string first = "PHT\xBB\xBB"s + offset, second = "PHT\xCC\xCC"s + offset;
    const struct {
        std::string before, after;
    } cases[] = {{first + log + file_head + slot("a", "1").substr(0, 30), file_head + log},
                 {first + log, file_head + log},
                 {first + log + slot("c", "3"), file_head + log + slot("c", "3")},
                 {second + log + file_head + slot("b", "2"), file_head + slot("b", "2")},
                 // The log has grown over the copy's place since.
                 {second + log + slot("c", "3"), file_head + log + slot("c", "3")},
                 {file_head + log, file_head + log},
                 {"garbage that is no table", "garbage that is no table"}};
    for (const auto& one : cases) {
        set_bytes(one.before);
        EXPECT_EQ(Persistent_Hashtable::recover(path()), 1);
        EXPECT_TRUE(bytes() == one.after) << one.before.size();
    }
}
