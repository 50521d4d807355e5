// Messages: building, binding, translated texts; pools of the runtime.
#include "base/bind_msg.h"
#include "base/mem.h"
#include "base/mrtwrap.h"
#include "base/msg_catalogs.h"
#include "base/spcatalog.h"

#include "support/has.h"
#include "support/scratch.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <map>

using km::spmessage;

namespace {

std::string bound(const char* format, const km::any& value) {
    char* text = km::real_msg_bind(nullptr, format, 0, 0, value, nullptr, 0);
    std::string out = text;
    std::free(text);
    return out;
}

} // namespace

TEST(Messages, EveryEntryCarriesItsIdButAPlainText) {
    spmessage messages;
    EXPECT_EQ(messages.bind(), nullptr);
    messages.add(602L);
    messages.add("50% done");
    messages.add(25L, "/x", "13");
    EXPECT_STREQ(messages.bind(), "ZNPSE0602E Cannot access HOME path.\n\n50% done\n"
                                  "ZNPSE0025E Unable to create the path /x. Error number: 13.\n");
    EXPECT_EQ(messages.id_of(1), "");
    EXPECT_EQ(messages.text_of(1), "50% done");
    EXPECT_EQ(messages.get_count(), 3);
}

TEST(Messages, ArgumentsComeInTheOrderOfTheirPositions) {
    spmessage messages;
    messages.add(24L, "/file", "2");
    messages.add(788L, "a == b", "caption");
    EXPECT_HAS(messages.bind(), "open the file /file. Error number: 2.");
    EXPECT_EQ(messages.text_of(1),
              "I The container 'caption' is skipped because the condition 'a == b' is false.\n");
    messages.add(199L, static_cast<const char*>(nullptr));
    EXPECT_HAS(messages.text_of(2), "** Invalid String (NULL)");
    errno = ENOENT;
    messages.add(199L, "$errno");
    EXPECT_HAS(messages.text_of(3), std::strerror(ENOENT));
}

TEST(Messages, AKeyOfNoMessageIsToldAsSuch) {
    long reserved = 1;
    while (km::is_spcatalog_key(reserved))
        ++reserved;
    spmessage messages;
    messages.add(reserved);
    messages.add(99999L);
    messages.add(-1L);
    EXPECT_EQ(messages.bind(), "Unknown message " + std::to_string(reserved) +
                                   "\nUnknown message 99999\nUnknown message -1");
}

TEST(Messages, TheTableHoldsWhatItSays) {
    std::map<std::string, int> kinds;
    int unused = 0;
    EXPECT_STREQ(km::spcatalog[0], "spcatalog");
    for (int key = 1; key < km::spcatalog_size; ++key) {
        const std::string text = km::spcatalog[key];
        if (!km::is_spcatalog_key(key)) {
            char name[16];
            std::snprintf(name, sizeof name, "unused%03d", unused++);
            EXPECT_EQ(text, name) << key;
            continue;
        }
        const bool has_severity = text.size() > 2 && text[1] == ' ' && strchr("EWI", text[0]);
        ++kinds[has_severity ? text.substr(0, 1) : "label"];
        // Each builds with arguments of its own; none is an illegal format.
        spmessage one;
        one.add(key, "a", "b", "c", "d", "e", "f");
        EXPECT_EQ(one.text_of(0).find("illegal"), std::string::npos) << key;
        EXPECT_EQ(one.text_of(0).find('%'), std::string::npos) << key;
    }
    EXPECT_EQ(unused, 159);
    EXPECT_EQ(kinds,
              (std::map<std::string, int>{{"E", 393}, {"W", 69}, {"I", 164}, {"label", 20}}));
}

TEST(Messages, NumbersOfAnotherTable) {
    static const char* const table[] = {"host", "I %2$d of %1$s, %3$lu, %4$X", "E %1$q"};
    spmessage messages;
    messages.add(table, 1L, "ten", -3, 5000000000UL, -1);
    messages.add(table, 2L);
    EXPECT_EQ(messages.text_of(0), "I -3 of ten, 5000000000, FFFFFFFF");
    EXPECT_EQ(messages.text_of(1), "Format has illegal types, need standard catalog entry: E %1$q");
    EXPECT_EQ(messages.id_of(1), "");
}

TEST(Messages, InsertPutsTheOthersFirst) {
    spmessage own, other;
    own.add("own");
    other.add("other");
    own.insert(&other);
    EXPECT_STREQ(own.bind(), "other\nown");
    EXPECT_EQ(other.get_count(), 0);
    own.insert(&own);
    EXPECT_EQ(own.get_count(), 2);
}

TEST(Binding, BadFormatsGiveReadableWords) {
    const km::any list = km::StringList{"a", "b"};
    const char* cases[][2] = {{"%%", "%"},
                              {"x%", "x*bogus format %*"},
                              {"%s", "*expecting positional #*s"},
                              {"%1s", "*expecting $*s"},
                              {"%1$q", "*don't know what to do with fmt*"},
                              {"%1$s-%2$s-%3$s", "a-b-"},
                              {"%1$M", "*given type `string' is not a message*"},
                              {"%0$I{<%0$s>}{,}", "<a>,<b>"},
                              {"%1$I{x}", "*expecting sequence or array for $I, got `string'*"},
                              {"%0$I", "*expecting paren field {} after $I*"},
                              {"%1$t", "*expecting paren field {} for time spec*"}};
    for (const auto& one : cases)
        EXPECT_EQ(bound(one[0], list), one[1]) << one[0];
    EXPECT_EQ(bound(nullptr, list), "*no format string*");
    char small[4];
    EXPECT_STREQ(km::real_msg_bind(nullptr, "abcdef", 0, 0, list, small, sizeof small), "abc");
}

TEST(Binding, AMessageInsideItselfEnds) {
    auto message = std::make_shared<km::XOpenMessage>();
    km::message_entry entry;
    entry.text = "[%1$M]";
    for (int i = 0; i < 100; ++i) {
        auto inner = std::make_shared<km::message_entry>(entry);
        entry.arguments = inner;
    }
    message->entries.push_back(entry);
    char* text = km::nrx_msg_bind(message.get(), nullptr, 0);
    EXPECT_NE(std::strstr(text, "*messages are nested too deeply*"), nullptr);
    std::free(text);
}

TEST(Catalogs, AMissingCatalogueIsSilentAndAFoundOneWins) {
    km_test::scratch_dir dir;
    dir.write("in.msg", "$set 1\n3 ABCDE\n$set 2\n602 E Kein HOME-Pfad.\\n\n");
    const std::string make = "gencat " + dir.at("spcatalog.de.cat") + " " + dir.at("in.msg");
    ASSERT_EQ(std::system(make.c_str()), 0) << "gencat comes with the C library's headers";
    ::setenv("NLSPATH", dir.at("%N.%l.cat").c_str(), 1);
    ::setenv("LC_ALL", "de_DE.UTF-8", 1);
    spmessage messages;
    messages.add(602L);
    EXPECT_STREQ(messages.bind(), "ABCDE0602E Kein HOME-Pfad.\n");
    ::setenv("LC_ALL", "fr_FR.UTF-8", 1);
    EXPECT_STREQ(messages.bind(), "ZNPSE0602E Cannot access HOME path.\n");
    ::unsetenv("NLSPATH");
    km::my_set_default_path((dir.at("none") + ";" + dir.at("%N.%l.cat")).c_str());
    ::setenv("LC_ALL", "de_AT.UTF-8", 1);
    const int german = km::my_catopen("spcatalog", 1);
    EXPECT_EQ(km::my_cacheIndex(dir.at("spcatalog.de.cat").c_str()), german);
    EXPECT_STREQ(km::my_catgets(german, 1, 3, "-"), "ABCDE");
    for (const char* bad : {"in.msg", "none"})
        EXPECT_EQ(km::my_addCat(dir.at(bad).c_str()), -1) << bad;
    // Damaged ones are no catalogues, or have other texts; they end nothing.
    const std::string whole = dir.read("spcatalog.de.cat");
    for (size_t at = 0; at < whole.size(); ++at) {
        const std::string cut = dir.write("c" + std::to_string(at), whole.substr(0, at));
        EXPECT_EQ(km::my_addCat(cut.c_str()), -1) << at;
        for (const char byte : {'\xff', '\x80', '\x01'}) {
            std::string bent = whole;
            bent[at] = byte;
            const std::string name = dir.write("b" + std::to_string(at) + byte, bent);
            km::my_catgets(km::my_addCat(name.c_str()), 1, 3, "-");
        }
    }
    const std::pair<int, long> missing[] = {{-1, 3}, {german, 4}, {99, 3}, {german, 1L << 40}};
    for (const auto& [catalogue, key] : missing)
        EXPECT_STREQ(km::my_catgets(catalogue, 1, key, "-"), "-");
    km::my_set_default_path(nullptr);
    km::my_closeAll();
}

TEST(Mem, PoolsFreeWhatNobodyFreed) {
    km::ml_pool* pool = km::ml_create();
    auto* bytes = static_cast<unsigned char*>(km::ml_malloc(pool, 5));
    EXPECT_EQ(bytes[0], 0xA1);
    EXPECT_EQ(bytes[5], 0xA1); // the guard
    bytes[0] = 'x';
    bytes = static_cast<unsigned char*>(km::ml_realloc(pool, bytes, 5000));
    EXPECT_EQ(bytes[0], 'x');
    bytes[5000] = 'x'; // gone astray
    km::ml_to_mg(pool, bytes);
    EXPECT_EQ(bytes[5000], 0xA1);
    km::ml_strdup(pool, "left behind");
    km::ml_free(pool, nullptr);
    km::ml_destroy(pool);
    EXPECT_EQ(km::mg_realloc(bytes, 0), nullptr);
    volatile size_t too_much = SIZE_MAX / 4;
    EXPECT_THROW(km::x_malloc(too_much), km::mrt_exception);
    EXPECT_THROW(km::x_calloc(too_much, 4), km::mrt_exception);
    EXPECT_THROW(km::mg_calloc(too_much + 1, 4), km::mrt_exception); // 0 by its low 64 bits
    km::mg_cleanup();
}

TEST(Mem, AMillionBlocksInAnyOrder) {
    km::ml_pool *pool = km::ml_create(), *other = km::ml_create();
    std::vector<char*> blocks(1000000);
    for (size_t i = 0; i < blocks.size(); ++i) {
        blocks[i] = static_cast<char*>(km::ml_malloc(pool, i % 23));
        std::memset(blocks[i], static_cast<int>(i % 251), i % 23);
    }
    for (size_t i = 0; i < blocks.size(); i += 3)
        km::ml_free(pool, blocks[i]);
    for (size_t i = 1; i < blocks.size(); i += 3) {
        blocks[i] = static_cast<char*>(km::ml_realloc(pool, blocks[i], i % 37));
        km::ml_to_mg(pool, blocks[i]);
        km::mg_to_ml(other, blocks[i]);
    }
    km::ml_destroy(pool);
    bool kept = true;
    for (size_t i = 1; i < blocks.size(); i += 3)
        for (size_t at = 0; at < i % 37; ++at)
            kept =
                kept && static_cast<unsigned char>(blocks[i][at]) == (at < i % 23 ? i % 251 : 0xA1);
    EXPECT_TRUE(kept);
    km::ml_destroy(other);
}

#ifdef __SANITIZE_ADDRESS__
TEST(MemDeathTest, FreedMemoryIsNotRead) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    km::ml_pool* pool = km::ml_create();
    volatile char* freed = static_cast<char*>(km::ml_malloc(pool, 8));
    volatile char* moved = static_cast<char*>(km::ml_malloc(pool, 8));
    char* grown = static_cast<char*>(km::ml_realloc(pool, const_cast<char*>(moved), 9));
    km::ml_free(pool, const_cast<char*>(freed));
    EXPECT_DEATH(std::exit(freed[0]), "heap-use-after-free");
    EXPECT_DEATH(std::exit(moved[0]), "heap-use-after-free");
    km::ml_free(pool, grown);
    EXPECT_DEATH(km::ml_free(pool, grown), "heap-use-after-free");
    km::ml_destroy(pool);
}
#endif

TEST(Runtime, DirectoriesByName) {
    const km::mrt_globals globals{"/opt/agent/run/", "/opt/agent/bin/x/y", "/lib", nullptr};
    km::mrt_set_globals(&globals);
    char out[1025];
    EXPECT_EQ(km::get_var_value("NONE", out), -1);
    const char* cases[][2] = {{"INTERP", "solaris2"},
                              {"TEMP", "/tmp"},
                              {"STAGE", "/opt/agent/run//stage"},
                              {"UPG", "/opt/agent/bin/x/y/upgrade"},
                              {"MYVOL7", "<UNKNOWN>"},
                              {"VOL", "<UNKNOWN>"},
                              {"RUN", "/opt/agent/run/"},
                              {"LIB", "/lib"},
                              {"UNID", "run"},
                              {"IBASE", "/opt/agent"},
                              {"IDRIVE", "/"},
                              {"TOOLS", "/opt/agent/bin/tools"},
                              {"MSGCAT", "/opt/agent/generic/msg_cat"}};
    for (const auto& one : cases) {
        EXPECT_EQ(km::get_var_value(one[0], out), static_cast<int>(std::strlen(one[1])));
        EXPECT_STREQ(out, one[1]) << one[0];
    }
    const std::string long_name(3000, 'l');
    const km::mrt_globals odd{"run", "a/b", long_name.c_str(), ""};
    km::mrt_set_globals(&odd);
    EXPECT_EQ(km::get_var_value("LIB", out), 1024);
    EXPECT_STREQ(km::uniqueidentifier(), "<UNDEFINED IDENTIFIER>");
    EXPECT_STREQ(km::base_bindir(), "/bin");
    EXPECT_STREQ(km::mrt_get_cache_base(), "");
    km::mrt_set_globals(nullptr);
    EXPECT_EQ(km::mrt_get_cache_base(), nullptr);
    EXPECT_EQ(km::mrt_expand_variable("SYSTEM"), nullptr);
    char path[] = "\"a\\\\b//'c'\"";
    EXPECT_STREQ(km::CorrectPath(path, 3), "a/b/c");
    km::mrt_set_globals(nullptr);
}
