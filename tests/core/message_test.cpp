// Messages: building, binding, translated texts; pools of the runtime.
#include "base/bind_msg.h"
#include "base/mem.h"
#include "base/mrtwrap.h"
#include "base/msg_catalogs.h"
#include "base/spcatalog.h"

#include "support/scratch.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

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
    EXPECT_NE(std::string(messages.bind()).find("open the file /file. Error number: 2."),
              std::string::npos);
    EXPECT_EQ(messages.text_of(1),
              "I The container 'caption' is skipped because the condition 'a == b' is false.\n");
    messages.add(199L, static_cast<const char*>(nullptr));
    EXPECT_NE(messages.text_of(2).find("** Invalid String (NULL)"), std::string::npos);
    errno = ENOENT;
    messages.add(199L, "$errno");
    EXPECT_NE(messages.text_of(3).find(std::strerror(ENOENT)), std::string::npos);
}

TEST(Messages, AKeyOfNoMessageIsToldAsSuch) {
    spmessage messages;
    messages.add(1L);
    messages.add(99999L);
    EXPECT_STREQ(messages.bind(), "Unknown message 1\nUnknown message 99999");
    EXPECT_EQ(std::strncmp(km::spcatalog[1], "unused000", 9), 0);
    EXPECT_STREQ(km::spcatalog[0], "spcatalog");
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
    const char* cases[][2] = {
        {"%%", "%"},
        {"x%", "x*bogus format %*"},
        {"%s", "*expecting positional #*s"},
        {"%1s", "*expecting $*s"},
        {"%1$q", "*don't know what to do with fmt*"},
        {"%1$s-%2$s-%3$s", "a-b-"},
        {"%1$M", "*given type `string' is not a message*"},
        {"%0$I{<%0$s>}{,}", "<a>,<b>"},
        {"%1$I{x}", "*expecting sequence or array for $I, got `string'*"},
        {"%0$I", "*expecting paren field {} after $I*"},
        {"%1$t", "*expecting paren field {} for time spec*"},
    };
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
    if (std::system(make.c_str()) != 0)
        return; // no gencat on this machine
    ::setenv("NLSPATH", dir.at("%N.%l.cat").c_str(), 1);
    ::setenv("LC_ALL", "de_DE.UTF-8", 1);
    spmessage messages;
    messages.add(602L);
    EXPECT_STREQ(messages.bind(), "ABCDE0602E Kein HOME-Pfad.\n");
    ::setenv("LC_ALL", "fr_FR.UTF-8", 1);
    EXPECT_STREQ(messages.bind(), "ZNPSE0602E Cannot access HOME path.\n");
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
    km::ml_to_mg(pool, bytes);
    km::ml_strdup(pool, "left behind");
    km::ml_free(pool, nullptr);
    km::ml_destroy(pool);
    EXPECT_EQ(km::mg_realloc(bytes, 0), nullptr);
    volatile size_t too_much = SIZE_MAX / 4;
    EXPECT_THROW(km::x_malloc(too_much), km::mrt_exception);
    km::mg_cleanup();
}

TEST(Runtime, DirectoriesByName) {
    const km::mrt_globals globals{"/opt/agent/run/", "/opt/agent/bin/x/y", "/lib", nullptr};
    km::mrt_set_globals(&globals);
    char out[1025];
    EXPECT_EQ(km::get_var_value("NONE", out), -1);
    EXPECT_GT(km::get_var_value("TOOLS", out), 0);
    EXPECT_STREQ(out, "/opt/agent/bin/tools");
    EXPECT_STREQ(km::uniqueidentifier(), "run");
    EXPECT_EQ(km::mrt_get_cache_base(), nullptr);
    EXPECT_EQ(km::mrt_expand_variable("SYSTEM"), nullptr);
    char path[] = "\"a\\\\b//'c'\"";
    EXPECT_STREQ(km::CorrectPath(path, 3), "a/b/c");
    km::mrt_set_globals(nullptr);
}
