// Texts in files of others: what is put in, and that taking it out leaves the bytes of before.
#include "made_directories.h"
#include "room.h"
#include "target_root.h"
#include "text_object.h"

#include "package/package_fixture.h"
#include "support/has.h"
#include "support/text_definition.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>

using namespace km;
using namespace km_test;

namespace {

class TextTest : public PackageTest {
  protected:
    void SetUp() override {
        PackageTest::SetUp();
        ASSERT_EQ(set_target_root(dir_.at("target").c_str()), 1);
        package_.name = "pkg";
        package_.version = "1";
        package_.messages = &told_;
        dir_.write("libs.znp", KM_BUILD_LIB "/libkmcore\n" KM_BUILD_LIB "/libkmobjects\n");
        library_loader::discard();
        forget_made_directories();
        forget_room();
    }
    void TearDown() override {
        package_.messages = nullptr;
        set_target_root(nullptr);
        PackageTest::TearDown();
    }
    text_object& make(const std::string& spec) {
        command_ = text_command(spec);
        command_->set_package(&package_);
        return dynamic_cast<text_object&>(*command_->object);
    }
    std::string file() const { return dir_.read("target/f"); }

    spmessage told_;
    cm_package package_;
    std::unique_ptr<cm_object_command> command_;
};

struct edit {
    const char* before;
    const char* spec; // behind "path=/f|"
    const char* after;
};

const edit lines[] = {{"a\nb\n", "text=c", "a\nb\nc\n"},
                      {"a\nb", "text=c", "a\nb\nc"},
                      {"", "text=c", "c\n"},
                      {"a\r\nb\r\n", "text=c", "a\r\nb\r\nc\r\n"},
                      {"a\r\nb", "text=c", "a\r\nb\r\nc"},
                      {"a\nb", "text=c|position=1", "c\na\nb"},
                      {"a", "text=c|position=1", "c\na"},
                      {"\xEF\xBB\xBF"
                       "a\n",
                       "text=c|position=1",
                       "\xEF\xBB\xBF"
                       "c\na\n"},
                      {"\tb1\n\n b2 ", "text=c|position=2|pattern=b*", "c\n\tb1\n\n b2 "},
                      {"\tb1\n\n b2 ", "text=c|position=3|pattern=b*", "\tb1\n\nc\n b2 "},
                      {"\tb1\n\n b2 ", "text=c|position=4|pattern=b*", "\tb1\nc\n\n b2 "},
                      {"\tb1\n\n b2 ", "text=c|position=5|pattern=b*", "\tb1\n\n b2 \nc"},
                      {"a\n", "text=c|position=3|pattern=b*", "c\na\n"},
                      {"a\n", "text=c|position=5|pattern=b*", "a\nc\n"},
                      {"\xFF\xFE \n c\n", "text=\xC3\xBC", "\xFF\xFE \n c\n\xC3\xBC\n"},
                      {"\n\n", "text=  c ", "\n\n  c \n"}};
const edit tokens[] = {
    {"PATH=/a:/b\n", "name=PATH|token=/c", "PATH=/a:/b:/c\n"},
    {"PATH=/a:/b", "name=PATH|token=:/c:|position=1", "PATH=/c:/a:/b"},
    {"#PATH=/c\n PATH = \"/a:/b\" # x:y\r\n", "name=PATH|token=/c",
     "#PATH=/c\n PATH = \"/a:/b:/c\" # x:y\r\n"},
    {"PATH=/a # x:y\n", "name=PATH|token=/c", "PATH=/a:/c # x:y\n"},
    {"export P=/a", "name=export P|token=/c|position=1", "export P=/c:/a"},
    {"PATH2=/c\nx", "name=PATH|token=/c", "PATH2=/c\nx\nPATH=/c"},
    {"PATH=\n", "name=PATH|token=/c", "PATH=/c\n"},
    {"PATH=/a:\n", "name=PATH|token=/c", "PATH=/a::/c\n"},
    {"G='quiet  splash'\n", "name=G|token=nomodeset|separator= |position=4|reference=q*",
     "G='quiet nomodeset  splash'\n"},
    {"L=a, b,ab\n", "name=L|token=c|separator=,|position=3|reference=*b", "L=a, b,c,ab\n"},
    {"L=a\n", "name=L|token=c|separator=,|position=2|reference=z", "L=c,a\n"},
};
const edit items[] = {
    {"[a]\nx=1\n\n[b]\ny=2\n", "section=a|key=n|value=5", "[a]\nx=1\nn=5\n\n[b]\ny=2\n"},
    {"; c\n[a]\r\n\tx = 1 ; d\r\n#n = 7\r\n", "section=a|key=n|value=5",
     "; c\n[a]\r\n\tx = 1 ; d\r\n#n = 7\r\nn = 5\r\n"},
    {"[ a ]\n\tx  =  1  ; d", "section=a|key=x|value=5", "[ a ]\n\tx  =  5  ; d"},
    {"[a]\nx=a;b", "section=a|key=x|value=5 ;6", "[a]\nx=5 ;6"},
    {"[a]\nx =\n", "section=a|key=x|value=5", "[a]\nx = 5\n"},
    {"[a]\nx=1\n[b]\nx=1\n[a]\nx=2\n", "section=a|key=x|value=5", "[a]\nx=1\n[b]\nx=1\n[a]\nx=5\n"},
    {"[a]\nx = 1", "section=b|key=n|value=5", "[a]\nx = 1\n[b]\nn = 5"},
    {"", "section=b|key=n|value=5", "[b]\nn=5\n"},
    {"[a]\nx=1\n", "key=n|value=5", "n=5\n[a]\nx=1\n"},
    {"no item\nx=1\n\n[a]\n", "section=|key=n|value=", "no item\nx=1\nn=\n\n[a]\n"},
};

// Puts in twice, verifies, takes out twice; then once more through the states of an undo.
class TextEdit : public TextTest {
  protected:
    void check(const edit& one, const char* stanza) {
        SCOPED_TRACE(std::string(one.before) + " <- " + one.spec);
        dir_.write("target/f", one.before);
        text_object& text = make(stanza + std::string(" path=/f|") + one.spec);
        EXPECT_FALSE(text.is_identical(p_do));
        EXPECT_EQ(text.check_add(p_do), 0) << text_of(told_);
        std::unique_ptr<cm_object> missing(text.exists(p_do) ? text.get_undo_object() : nullptr);
        for (int run = 0; run < 2; ++run) {
            EXPECT_EQ(text.add(p_do), 0) << text_of(told_);
            EXPECT_EQ(file(), one.after);
            EXPECT_TRUE(text.is_identical(p_do));
        }
        std::unique_ptr<cm_object> standing(text.get_undo_object());
        for (int run = 0; run < 2; ++run) {
            EXPECT_EQ(text.remove(p_do), 0) << text_of(told_);
            EXPECT_EQ(file(), one.before);
        }
        EXPECT_FALSE(text.is_own());
        EXPECT_EQ(standing->add(p_do), 0) << text_of(told_);
        EXPECT_EQ(file(), one.after);
        EXPECT_TRUE(text.is_own()) << "what is brought back is the package's again";
        EXPECT_EQ((missing ? missing->add(p_do) : text.remove(p_do)), 0) << text_of(told_);
        EXPECT_EQ(file(), one.before);
        EXPECT_FALSE(text.is_own());
    }
};

TEST_F(TextEdit, OfLinesGoesWithoutATrace) {
    for (const auto& one : lines)
        check(one, "add_line");
}
TEST_F(TextEdit, OfTokensGoesWithoutATrace) {
    for (const auto& one : tokens)
        check(one, "add_token");
}
TEST_F(TextEdit, OfItemsGoesWithoutATrace) {
    for (const auto& one : items)
        check(one, "add_ini_item");
}

TEST_F(TextTest, WhatStoodThereOrWasChangedStays) {
    dir_.write("target/f", "c\nd\n");
    EXPECT_EQ(make("add_line path=/f|text=c").add(p_do), 0);
    EXPECT_EQ(command_->object->remove(p_do), 0);
    EXPECT_EQ(file(), "c\nd\n");
    EXPECT_HAS(text_of(told_), "stood there before");
    auto& item = make("add_ini_item path=/f|section=s|key=k|value=1");
    EXPECT_EQ(item.add(p_do), 0);
    dir_.write("target/f", "c\n[s]\nk=2\n");
    EXPECT_EQ(item.remove(p_do), 0);
    EXPECT_EQ(file(), "c\n[s]\nk=2\n");
    EXPECT_HAS(text_of(told_), "any more");
    make("add_ini_item path=/g|section=s|key=k|value=1|remove_if_modified=1");
    dir_.write("target/g", "[s]\nk=0\n");
    for (const int action : {a_execute, a_reverse}) {
        command_->do_execute(action, p_do);
        EXPECT_EQ(command_->result, 0);
        EXPECT_EQ(dir_.read("target/g"), action == a_execute ? "[s]\nk=1\n" : "[s]\nk=0\n");
        dir_.write("target/g", "[s]\nk=2\n");
    }
    // A definition that asks for a removal gets it.
    for (const char* spec :
         {"remove_line path=/f|pattern=c*", "remove_ini_item path=/f|section=s|key=k"}) {
        make(spec);
        command_->do_execute(a_execute, p_do);
        EXPECT_EQ(command_->result, 0);
    }
    EXPECT_EQ(file(), "") << "with the section, which was made for the item";
}

// Of several texts the surroundings go with the last.
TEST_F(TextTest, WhatIsMadeAroundTextsGoesWhenItIsEmpty) {
    std::vector<std::unique_ptr<cm_object_command>> all;
    for (const char* value : {"a", "b", "c"}) {
        make("add_ini_item path=/f|create=1|section=s|value=1|key=" + std::string(value));
        EXPECT_EQ(command_->object->check_add(p_do), 0);
        EXPECT_EQ(command_->object->add(p_do), 0);
        all.push_back(std::move(command_));
    }
    EXPECT_EQ(file(), "[s]\na=1\nb=1\nc=1\n");
    EXPECT_EQ(dir_.mode("target/f"), 0644U);
    for (const int i : {0, 2, 1})
        EXPECT_EQ(all[static_cast<size_t>(i)]->object->remove(p_do), 0);
    EXPECT_FALSE(dir_.exists("target/f"));
    EXPECT_TRUE(std::filesystem::is_empty(dir_.at("target")));
}

TEST_F(TextTest, AFileBehindLinksIsEditedInPlaceWithItsRights) {
    dir_.write("target/usr/f", "a\n");
    std::filesystem::create_directories(dir_.at("target/etc"));
    std::filesystem::create_symlink("../../../../up", dir_.at("target/etc/f"));
    std::filesystem::create_symlink("/usr/f", dir_.at("target/up"));
    const std::string real = dir_.at("target/usr/f");
    ::chmod(real.c_str(), 0604);
    const bool has_attributes = ::setxattr(real.c_str(), "user.km", "x", 1, 0) == 0;
    EXPECT_EQ(make("add_line path=/etc/f|text=b").add(p_do), 0) << text_of(told_);
    EXPECT_EQ(dir_.read("target/usr/f"), "a\nb\n");
    EXPECT_TRUE(std::filesystem::is_symlink(dir_.at("target/etc/f")));
    struct stat about {};
    ASSERT_EQ(::stat(real.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777, 0604U);
    char value = 0;
    EXPECT_TRUE(!has_attributes ||
                (::getxattr(real.c_str(), "user.km", &value, 1) == 1 && value == 'x'));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.at("target/usr")), {}), 1);
}

struct refusal {
    const char* spec;
    int result;
    const char* told;
};

TEST_F(TextTest, WhatCannotBeEditedIsRefusedWithAReasonAndStays) {
    const std::string with_nul("a\0b\n", 4);
    dir_.write("target/nul", with_nul);
    dir_.write("target/f", "a\n");
    dir_.write("target/large", "");
    std::filesystem::resize_file(dir_.at("target/large"), 64UL * 1024 * 1024 + 1);
    std::filesystem::create_directory(dir_.at("target/d"));
    std::filesystem::create_symlink("loop", dir_.at("target/loop"));
    ASSERT_EQ(::mkfifo(dir_.at("target/pipe").c_str(), 0600), 0);
    dir_.write("target/locked", "a\n");
    const int held = ::open(dir_.at("target/locked").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    const refusal all[] = {{"add_line path=/missing|text=x", 9, "/missing"},
                           {"add_line path=/f/below|text=x|create=1", 9, "Not a directory"},
                           {"add_line path=/nul|text=x", 9, "NUL"},
                           {"add_line path=/large|text=x", 9, "64 MiB"},
                           {"add_line path=/d|text=x", 9, "directory"},
                           {"add_line path=/loop|text=x", 9, "symbolic links"},
                           {"add_line path=/pipe|text=x", 9, "no file"},
                           {"add_line path=/locked|text=x", 8, "lock"},
                           {"add_line path=f|text=x", 9, "not absolute"},
                           {"add_line path=/f", 9, "no text"},
                           {"add_line path=/f|text=x\ny", 9, "more than one line"},
                           {"add_line path=/f|text=$(x)", 9, "not defined"},
                           {"add_line path=/f|text=x|position=6", 9, "position"},
                           {"add_token path=/f|name=P|token=a:b", 9, "separator"},
                           {"add_token path=/f|name=P|token=a|separator=::", 9, "one character"},
                           {"add_ini_item path=/f|section=[|key=k", 9, "bracket"},
                           {"add_ini_item path=/f|section=s|key=#k", 9, "no key"}};
    for (const auto& one : all) {
        SCOPED_TRACE(one.spec);
        spmessage fresh;
        package_.messages = &fresh;
        text_object& text = make(one.spec);
        EXPECT_EQ(text.check_add(p_do), one.result);
        EXPECT_HAS(text_of(fresh), one.told);
        EXPECT_EQ(text.add(p_do), one.result);
        EXPECT_FALSE(text.is_identical(p_do));
    }
    package_.messages = &told_;
    ::close(held);
    EXPECT_EQ(dir_.read("target/nul"), with_nul);
    EXPECT_EQ(file(), "a\n");
    EXPECT_FALSE(dir_.exists("target/missing"));
}

} // namespace
