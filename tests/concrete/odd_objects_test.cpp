// Hard links, files whose changes are kept, containers with a condition, restarts with effect; what
// a definition gives of an object.
#include "hard_link_object.h"
#include "restart_command.h"

#include "concrete/odd_fixture.h"
#include "support/coded.h"
#include "support/has.h"
#include "support/fake_definition.h"

using namespace km_test;

namespace {

class Definitions : public OddTest {};
class HardLink : public OddTest {};
class WrittenFile : public OddTest {};
class KeptFile : public OddTest {};
class Restart : public OddTest {};

} // namespace

TEST_F(Definitions, AttributesStandAgainstTheSource) {
    dir_.write("source/f", "content");
    ::chmod(dir_.at("source/f").c_str(), 0640);
    set_time(dir_.at("source/f"), long_ago);
    const struct {
        std::map<std::string, std::string> given;
        int mode, owner; // -1: that of the source
    } cases[] = {{{}, 0640, -1},
                 {{{"mode", "644"}}, 0644, -1},
                 {{{"mode", "0644"}}, 0644, -1},
                 {{{"mode", "04755"}, {"owner", "7"}, {"group", "root"}}, 04755, 7},
                 {{{"mode", "0"}}, 0, -1}};
    for (const auto& one : cases) {
        fake_importer from(one.given);
        km::km_file file;
        file.import(from);
        fake_exporter unloaded;
        file.export_(unloaded);
        EXPECT_EQ(has(unloaded.text, "mode="), one.given.count("mode") == 1) << unloaded.text;
        file.set_source(dir_.at("source/f"));
        EXPECT_EQ(file.load(1), 0);
        EXPECT_EQ(file.mode, one.mode);
        EXPECT_EQ(file.owner, one.owner < 0 ? static_cast<int>(::getuid()) : one.owner);
        EXPECT_EQ(file.mtime, u"1000000000.123456789");
    }
    for (const char* wrong : {"9", "", "77777", "rw-", "0x1ff"}) {
        fake_importer from(std::map<std::string, std::string>{{"mode", wrong}});
        km::spmessage messages;
        from.messages = &messages;
        km::km_file().import(from);
        EXPECT_EQ(from.flags, km::bad_value) << wrong;
        EXPECT_HAS(text_of(messages), "Near line 12: '" + std::string(wrong) + "'");
    }
    fake_importer nobody(std::map<std::string, std::string>{{"owner", "no such user"}});
    km::km_file().import(nobody);
    EXPECT_EQ(nobody.flags, km::bad_value);

    km::km_directory directory;
    EXPECT_EQ(directory.load(1), 0);
    EXPECT_EQ(directory.mode, 0755);
    EXPECT_LE(std::abs(std::atol(directory.mtime.mbcs_str()) - std::time(nullptr)), 5);
    km::cm_package package;
    km::spmessage messages;
    package.messages = &messages;
    km::km_file file;
    file.package = &package;
    file.path = u"/opt/f";
    EXPECT_EQ(file.load(1), 9);
    EXPECT_HAS(text_of(messages), "/opt/f has no source");
}

// A remove does not read what nobody wrote to; whoever did, however he hid it, keeps his file.
TEST_F(WrittenFile, IsKeptHoweverItWasHidden) {
    dir_.write("source/file", "new");
    const struct {
        const char* what;
        std::function<void(const std::string&)> change;
        bool stays;
    } cases[] = {
        {"nothing", [](const std::string&) {}, false},
        {"the time alone",
         [](const std::string& at) { fs::last_write_time(at, fs::file_time_type::clock::now()); },
         false},
        {"a second name", [](const std::string& at) { fs::create_hard_link(at, at + "2"); }, false},
        {"other bytes, the old time",
         [this](const std::string& at) {
             const auto before = fs::last_write_time(at);
             dir_.write("target/file", "old");
             fs::last_write_time(at, before);
         },
         true},
        {"another file, the old time",
         [this](const std::string& at) {
             dir_.write("target/other", "old");
             fs::last_write_time(dir_.at("target/other"), fs::last_write_time(at));
             fs::rename(dir_.at("target/other"), at);
         },
         true},
    };
    for (const auto& one : cases) {
        fresh_stores();
        pack({km::new_add_file(object_at<km::km_file>("file"))});
        ASSERT_EQ(go("install"), 0) << told_;
        one.change(dir_.at("target/file"));
        EXPECT_EQ(go("remove"), 0) << told_;
        EXPECT_EQ(text("file"), one.stays ? "old" : "none") << one.what;
    }
}

// What a stream gives to a command replaces all that the command had.
TEST_F(Definitions, ACommandTakesTheObjectOfItsStreamAndNothingElse) {
    const auto command = [&](km::cm_object* of) {
        return std::unique_ptr<km::cm_add_object>(km::new_add_file(of));
    };
    auto* staged = object_at<km::km_file>("one");
    staged->staged = 1;
    const auto first = command(staged), second = command(object_at<km::km_file>("two")),
               other = command(object_at<km::km_link>("link")), none = command(nullptr),
               last = command(object_at<km::km_file>("last"));
    delete none->object;
    none->object = nullptr;
    const std::string bytes = encoded([&](km::encoder& out) {
        for (const auto* one : {&first, &second, &other, &none})
            out.encode_object(one->get());
        last->encode_object(out);
    });
    reading stream(bytes), blocks(bytes, true);
    for (const auto* one : {&first, &second, &other, &none}) {
        km::codable *object = nullptr, *same = nullptr;
        stream.in.decode_object(object);
        blocks.in.decode_object(same);
        const std::unique_ptr<km::codable> own_object(object), own_same(same);
        ASSERT_TRUE(object && same);
        EXPECT_EQ(encoded(*same), encoded(*object));
        if ((*one)->object) {
            EXPECT_EQ(encoded(*same), encoded(**one));
        }
    }
    auto* used = object_at<km::km_file>("three");
    used->set_source("/of/before");
    const auto third = command(used);
    third->decode_object(blocks.in, 1);
    EXPECT_EQ(encoded(*third), encoded(*last));
    EXPECT_EQ(static_cast<km::km_file*>(third->object)->get_source(), "");
    EXPECT_EQ(blocks.in.get_status(), 0);
}

TEST_F(HardLink, IsNoCopyOfItsFileAndNeedsIt) {
    dir_.write("source/file", "new");
    auto* link = object_at<km::km_hard_link>("name");
    link->target = u(dir_.at("target/file"));
    pack({km::new_add_file(object_at<km::km_file>("file")), km::new_add_hard_link(link)});
    EXPECT_EQ(go("install"), 0) << told_;
    fs::remove(dir_.at("target/name"));
    dir_.write("target/name", "new");
    EXPECT_EQ(go("verify"), 9) << "the same bytes are not the same file";
    EXPECT_EQ(go("repair", km::m_repair), 0);
    EXPECT_TRUE(fs::equivalent(dir_.at("target/file"), dir_.at("target/name")));
    fresh_stores();
    auto* lost = object_at<km::km_hard_link>("lost");
    lost->target = u(dir_.at("target/nothing"));
    pack({km::new_add_hard_link(lost)});
    EXPECT_EQ(go("install"), 9);
    EXPECT_HAS(told_, "second name of");
}

// Steps: "pack V CONTENT" makes the package file; "user CONTENT" writes the file, "user -" removes
// it; an operation with letters of its mode, "OP MODE V"; "is FILE BESIDE" what must stand, "none"
// for nothing; "told" and "quiet": whether the last operation spoke of a change that was kept.
class KeptFileLife : public OddTest, public testing::WithParamInterface<const char*> {
  protected:
    void play_kept(const std::string& script) {
        std::istringstream steps(script);
        for (std::string one; std::getline(steps, one, ';');) {
            SCOPED_TRACE("at" + one);
            std::istringstream words(one);
            std::string word, first, second;
            words >> word >> first >> second;
            kept_step(word, first, second);
        }
    }
    void kept_step(const std::string& word, const std::string& first, const std::string& second) {
        if (word == "pack") {
            dir_.write("source/conf", second);
            pack({km::new_add_kept_file(object_at<km::km_kept_file>("conf"))}, first);
        } else if (word == "user") {
            fs::remove(dir_.at("target/conf"));
            if (first != "-")
                dir_.write("target/conf", first);
        } else if (word == "chmod") {
            ::chmod(dir_.at("target/conf").c_str(), 0600);
        } else if (word == "is") {
            EXPECT_EQ(text("conf"), first);
            EXPECT_EQ(text("conf.kmnew"), second);
        } else if (word == "told" || word == "quiet") {
            EXPECT_EQ(has(told_, "stays"), word == "told") << told_;
        } else if (word == "differs") {
            EXPECT_EQ(go("verify", 0, first), 9);
        } else {
            EXPECT_EQ(go(word, mode_of(first == "-" ? "" : first), second.empty() ? "1" : second),
                      0)
                << told_;
        }
    }
};

TEST_P(KeptFileLife, EndsAsTold) { play_kept(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Ways, KeptFileLife,
    testing::Values(
        "pack 1 a; install -; is a none; quiet; verify -; remove -; is none none; quiet",
        // Changed behind the install: no difference, never lost.
        "pack 1 a; install -; user mine; verify -; repair r; is mine none; remove -; is mine none; "
        "told",
        "pack 1 a; install -; chmod; verify -; repair r; is a none",
        "pack 1 a; install -; user -; differs 1; repair r; is a none",
        // One that stood there before any package.
        "user mine; pack 1 a; install -; told; is mine a; verify -; remove -; is mine none",
        "user a; pack 1 a; install -; quiet; is a none",
        "user mine; pack 1 a; install u; is mine a; undo -; is mine none",
        "user mine; pack 1 a; install u; user other; undo -; is other none",
        // A newer version.
        "pack 1 a; install -; pack 2 b; install -; is b none; quiet",
        "pack 1 a; install -; user mine; pack 2 b; install -; is mine b; told; verify - 2",
        "pack 1 a; install -; user mine; pack 2 a; install -; is mine none; quiet",
        "pack 1 a; install -; user mine; pack 2 b; install -; user b; pack 3 c; install -; is c b",
        "pack 1 a; install -; user mine; pack 2 b; install u; is mine b; undo - 2; is mine none; "
        "verify -",
        "pack 1 a; install -; pack 2 b; install u; is b none; undo - 2; is a none",
        "pack 1 a; install -; pack 2 b; install u; user mine; undo - 2; is mine none; told",
        // Prepared first.
        "pack 1 a; install t; is none none; commit -; is a none; verify -",
        "user mine; pack 1 a; install t; is mine none; commit -; is mine a; told; remove -; "
        "is mine none",
        "user mine; pack 1 a; install t; rollback -; is mine none",
        "pack 1 a; install -; pack 2 b; install t; commit - 2; is b none",
        // Taken away and brought back.
        "pack 1 a; install -; remove u; is none none; undo -; is a none",
        "pack 1 a; install -; user mine; remove u; is mine none; undo -; is mine none"),
    case_name);

#ifdef KM_KILL_POINTS
TEST_F(KeptFile, ARunBehindAKillDecidesAlike) {
    for (const char* before : {"", "a", "mine"}) {
        fresh_stores();
        dir_.write("source/conf", "a");
        pack({km::new_add_kept_file(object_at<km::km_kept_file>("conf"))});
        EXPECT_EQ(go("install"), 0);
        if (*before)
            dir_.write("target/conf", before);
        dir_.write("source/conf", "b");
        pack({km::new_add_kept_file(object_at<km::km_kept_file>("conf"))}, "2");
        ASSERT_TRUE(dies_at("finish.before_profile", [this] { go("install"); }));
        EXPECT_EQ(go("install"), 0) << told_;
        const bool kept = std::string(before) == "mine";
        EXPECT_EQ(text("conf"), kept ? "mine" : "b");
        EXPECT_EQ(text("conf.kmnew"), kept ? "b" : "none");
    }
}
#endif

TEST_F(Restart, GivesWhatItsOptionAsksFor) {
    km::cm_package package;
    km::km_restart one;
    one.package = &package;
    one.during_install = km::restart::after;
    one.during_remove = km::restart::immediately;
    one.during_undo = km::restart::immediately;
    one.during_commit = km::restart::after;
    const struct {
        int action, phase, result, in_commit;
    } cases[] = {{km::a_execute, km::p_do, 3, 0},
                 {km::a_reverse, km::p_do, 1, 0},
                 {km::a_execute, km::p_prepare, 0, 0},
                 {km::a_execute, km::p_commit, 3, 1},
                 {km::a_reverse, km::p_commit_after_reboot, 3, 1},
                 {km::a_execute, km::p_commit_before_reboot, 0, 0},
                 {km::a_execute, km::p_do_cleanup, 0, 0},
                 {km::a_verify_execute, km::p_do, 0, 0}};
    for (const auto& at : cases) {
        one.do_execute(at.action, at.phase);
        EXPECT_EQ(one.result, at.result) << at.action << " " << at.phase;
        EXPECT_EQ(one.execute_in_commit, at.in_commit) << at.action << " " << at.phase;
        EXPECT_EQ(package.restart_internal, 0);
    }
    const std::unique_ptr<km::cm_command> undo(one.get_undo_command(km::a_execute));
    undo->do_execute(km::a_execute, km::p_do);
    EXPECT_EQ(undo->result, 1);
}
