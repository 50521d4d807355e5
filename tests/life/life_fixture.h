// life_fixture: one real package on a scratch machine, and what every step must leave behind
#pragma once

#include "command_filter.h"
#include "data_entry.h"
#include "directory_object.h"
#include "file_object.h"
#include "link_object.h"
#include "made_directories.h"
#include "object_commands.h"
#include "room.h"
#include "stop_request.h"
#include "zip_file.h"

#include "package/package_fixture.h"
#include "support/child.h"

#include <fcntl.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>

namespace km_test {

namespace fs = std::filesystem;

constexpr time_t long_ago = 1'000'000'000, packed_at = 1'100'000'000;

inline void set_time(const std::string& path, time_t when) {
    const timespec times[2] = {{when, 0}, {when, 123456789}};
    ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

// Everything below a directory: kind, mode, owner, group, time, hard links, content. The time of a
// directory tells of its entries, so only those asked for are looked at.
using km::cm_catalog_entry;
using tree_picture = std::map<std::string, std::string>;
inline tree_picture picture_of(const std::string& root) {
    tree_picture all;
    for (const auto& one : fs::recursive_directory_iterator(root)) {
        struct stat about {};
        ::lstat(one.path().c_str(), &about);
        std::string text = std::to_string(about.st_mode) + " " + std::to_string(about.st_uid) +
                           ":" + std::to_string(about.st_gid);
        if (!S_ISDIR(about.st_mode))
            text += " " + std::to_string(about.st_mtim.tv_sec) + "." +
                    std::to_string(about.st_mtim.tv_nsec) + " x" + std::to_string(about.st_nlink);
        if (S_ISREG(about.st_mode)) {
            std::ifstream in(one.path(), std::ios::binary);
            text += " " + std::string(std::istreambuf_iterator<char>(in), {});
        } else if (S_ISLNK(about.st_mode)) {
            text += " -> " + fs::read_symlink(one.path()).string();
        }
        all[one.path().string().substr(root.size())] = text;
    }
    return all;
}

inline std::string difference(const tree_picture& is, const tree_picture& should) {
    std::string text;
    for (const auto& [path, what] : is)
        if (const auto at = should.find(path); at == should.end() || at->second != what)
            text += "\n  is     " + path + ": " + what;
    for (const auto& [path, what] : should)
        if (const auto at = is.find(path); at == is.end() || at->second != what)
            text += "\n  should " + path + ": " + what;
    return text;
}

// A command that a test can make fail in the middle of the tree; so can its undo.
class trap : public recorder {
  public:
    explicit trap(const std::string& of = "") : recorder(of) {}
    codable* clone() const override { return new trap(*this); }
    const char* codable_name() const override { return "com.ombrel.sd.cmObjects.KmtTrap"; }
    km::cm_command* get_undo_command(int) override {
        result = success;
        return new trap("untrap");
    }
};
inline km::codable* make_trap() { return new trap; }

// Name of a case: its place and its first words.
inline std::string case_name(const testing::TestParamInfo<const char*>& info) {
    std::string name = std::to_string(info.index);
    for (const char* at = info.param; *at; ++at)
        name += std::isalnum(static_cast<unsigned char>(*at)) ? *at : '_';
    return name.substr(0, 60);
}

class LifeTest : public PackageTest {
  protected:
    void SetUp() override {
        set_up_engine();
        fill_machine("target");
        fill_source();
        build("pkg", dir_.at("pkg.spb"));
        ASSERT_EQ(km::set_target_root(dir_.at("target").c_str()), 1);
        before_ = picture_of(dir_.at("target"));
        foresee_ends();
    }
    // The libraries with all objects, the store and what it lies beside.
    void set_up_engine() {
        PackageTest::SetUp();
        dir_.write("libs.znp", KM_BUILD_LIB "/libkmcore\n" KM_BUILD_LIB "/libkmobjects\n");
        km::library_loader::discard();
        km::library_loader::instance()->put(
            ustring("make_KmtTrap"),
            km::func_ptr(reinterpret_cast<void*>(reinterpret_cast<void (*)()>(&make_trap))));
        recorder::directory.clear();
        km::engine_hooks hooks;
        hooks.make_durable = [] { return km::flush_touched(); };
        km::set_engine_hooks(hooks);
        for (const char* name : {"source", "backup"})
            fs::create_directory(dir_.at(name));
    }
    void TearDown() override {
        km::set_target_root(nullptr);
        PackageTest::TearDown();
    }

    void add_file(const std::string& path, const std::string& bytes, mode_t mode,
                  time_t when = long_ago) {
        dir_.write(path, bytes);
        ::chmod(dir_.at(path).c_str(), mode);
        set_time(dir_.at(path), when);
    }
    void add_link(const std::string& path, const std::string& to, time_t when = long_ago) {
        fs::create_directories(fs::path(dir_.at(path)).parent_path());
        fs::create_symlink(to, dir_.at(path));
        set_time(dir_.at(path), when);
    }

    // What stands on the machine before: things that the package replaces, by its own and by
    // another kind, that it finds as they should be, and that do not concern it.
    void fill_machine(const std::string& root) {
        add_file(root + "/etc/app.conf", "old settings", 0640);
        add_file(root + "/etc/other.conf", "not of the package", 0600);
        add_file(root + "/etc/was_file", "a file before", 0604);
        add_link(root + "/etc/was_link", "other.conf");
        add_link(root + "/etc/turned", "app.conf");
        add_file(root + "/usr/same", "as in the package", 0644, packed_at);
        fs::create_directory(dir_.at(root + "/srv"));
        ::chmod(dir_.at(root + "/srv").c_str(), 0700);
        set_time(dir_.at(root + "/srv"), long_ago);
    }
    void fill_source() {
        add_file("source/etc/app.conf", std::string(70000, 'n'), 0644, packed_at);
        add_link("source/etc/was_file", "app.conf", packed_at);
        add_file("source/etc/was_link", "a file now", 0755, packed_at);
        add_link("source/etc/turned", "other.conf", packed_at);
        add_file("source/usr/same", "as in the package", 0644, packed_at);
        add_file("source/srv/empty", "", 04711, packed_at);
        add_file("source/opt/deep/below/file", "deep", 0444, packed_at);
        add_link("source/opt/deep/link", "below/file", packed_at);
        fs::create_directories(dir_.at("source/var/own/sub"));
        add_file("source/var/own/sub/leaf", "leaf", 0640, packed_at);
        for (const auto& one : fs::recursive_directory_iterator(dir_.at("source")))
            if (one.is_directory() && !one.is_symlink())
                ::chmod(one.path().c_str(), 0755);
        for (const char* name : {"srv", "var/own/sub", "var/own"})
            set_time(dir_.at(std::string("source/") + name), packed_at);
    }

    template <class Object>
    void add(km::cm_composite_command& to, km::cm_add_object* (*maker)(km::cm_object*),
             const std::string& path) {
        auto* object = new Object;
        object->set_path(u(path));
        object->set_source(dir_.at("source") + path);
        to.add(maker(object), nullptr);
    }
    // Directories before contents, links last; a command that a test can make fail in the middle.
    void build(const std::string& name, const std::string& to) {
        km::cm_package package;
        km::spmessage messages;
        package.messages = &messages;
        package.name = u(name);
        package.version = u("1");
        auto* tree = new km::cm_composite_command(1);
        package.add(tree, nullptr);
        for (const char* path : {"/srv", "/var/own", "/var/own/sub"})
            add<km::km_directory>(*tree, km::new_add_directory, path);
        for (const char* path : {"/etc/app.conf", "/etc/was_link", "/opt/deep/below/file"})
            add<km::km_file>(*tree, km::new_add_file, path);
        tree->add(new trap("trap"), nullptr);
        for (const char* path : {"/srv/empty", "/usr/same", "/var/own/sub/leaf"})
            add<km::km_file>(*tree, km::new_add_file, path);
        for (const char* path : {"/etc/turned", "/etc/was_file", "/opt/deep/link"})
            add<km::km_link>(*tree, km::new_add_link, path);
        km::file_output_channel out(pathname(to.c_str()), 0);
        km::zipping_channel zip(&out);
        ASSERT_EQ(package.save(&zip), 0) << text_of(messages);
        out.close();
    }

    // What an install must make of the machine, and what a remove behind it must leave.
    void foresee_ends() {
        auto &installed = ends_["new"] = before_, &removed = ends_["removed"] = before_;
        for (const auto& [path, what] : picture_of(dir_.at("source"))) {
            const bool is_directory =
                fs::is_directory(fs::symlink_status(dir_.at("source") + path));
            if (!is_directory || path == "/srv" || !before_.count(path))
                installed[path] = what;
            if (!is_directory)
                removed.erase(path);
            else if (path == "/srv")
                removed[path] = what; // it was there: it stays, as the package wanted it
        }
        ends_["before"] = before_;
    }

    // One operation as a host does it, in a process's fresh state: the gate and, if it allows, the
    // operation; minus the gate's answer if it refuses, -99 without a profile.
    int run(const std::string& op, unsigned mode, const std::string& version = "1") {
        km::forget_made_directories();
        km::forget_room();
        km::forget_directories();
        stores all(dir_.at("store"));
        const bool from_file = op == "install" || op == "repair";
        std::unique_ptr<km::unzipping_channel> data;
        const end_of_ahead ends_before_data;
        std::unique_ptr<km::cm_package> package;
        if (from_file && !goes_on_)
            package = from_package_file(all, data);
        else
            package = from_profile(all, version.c_str());
        if (from_file && goes_on_ && package)
            package->input_channel = (data = open_data(package->current_offset)).get();
        const int result = package ? run(*package, !data || goes_on_, op, mode) : -99;
        told_ = text_of(all.messages);
        return result;
    }
    static int run(km::cm_package& package, bool from_profile, const std::string& op,
                   unsigned mode) {
        static const std::map<std::string, int> operations = {
            {"install", 0}, {"repair", 0}, {"remove", 0}, {"rollback", 5},
            {"undo", 6},    {"verify", 8}, {"accept", 9}, {"commit", 10}};
        const int action = op == "remove" ? km::a_reverse : km::a_execute;
        if (op == "install" && !from_profile)
            mode |= km::m_binary_file;
        const int word = static_cast<int>(mode);
        int status = 0;
        if (const int no = package.validate_cm_status(operations.at(op), action, word, 0, &status))
            return -no;
        if (op == "repair") {
            km::detect_any_change changed;
            package.select_commands(changed, 1);
        }
        km::cm_package* none = nullptr;
        return op == "commit"     ? package.commit(word, 7)
               : op == "accept"   ? package.accept(word, 7)
               : op == "undo"     ? package.undo(word, 7)
               : op == "rollback" ? package.rollback(word, 7)
               : op == "verify"   ? package.verify(none, word, 7)
                                  : package.execute(action, word, 7);
    }
    std::unique_ptr<km::unzipping_channel> open_data(long offset) {
        auto data = std::make_unique<km::unzipping_channel>(
            new km::file_input_channel(pathname(dir_.at("pkg.spb").c_str()), offset));
        data->set_skip_tail(0);
        data->set_bytes_read(offset);
        return data;
    }
    struct end_of_ahead {
        ~end_of_ahead() { km::end_data_ahead(); }
    };
    std::unique_ptr<km::cm_package>
    from_package_file(stores& all, std::unique_ptr<km::unzipping_channel>& data) {
        data = open_data(0);
        km::zip_file listed(dir_.at("pkg.spb").c_str());
        listed.readCEN();
        const std::unique_ptr<km::vector> entries(listed.getCEN());
        km::begin_data_ahead(data.get(), dir_.at("pkg.spb").c_str(), *entries);
        data->get_next_entry();
        km::cm_package* read = nullptr;
        km::sp_object reader(&all.messages);
        reader.decode(read, data.get(), 1, km::sp_object::either);
        if (read) {
            all.give(*read);
            read->input_channel = data.get();
            read->source_path = pathname(dir_.at("pkg.spb").c_str());
        }
        return std::unique_ptr<km::cm_package>(read);
    }

    // Five letters, or "none".
    std::string letters() {
        stores all(dir_.at("store"));
        if (!all.entry())
            return "none";
        char text[6];
        km::dbstatus_to_str(all.entry()->get_dbstatus(), text);
        return text;
    }

    // What must hold behind every step: the words that the letters tell, no operation under way,
    // every file of the stores named by an entry and every file so named there, the tree whole, and
    // staged copies in it only where something is prepared.
    void expect_whole(const std::string& should, const std::string& tree) {
        ASSERT_EQ(letters(), should) << told_;
        stores all(dir_.at("store"));
        std::set<std::string> named, there;
        km::Keyslist entries(all.catalog);
        while (auto* one = entries.next_entry()) {
            const auto& entry = *dynamic_cast<const cm_catalog_entry*>(one->get_value());
            for (const auto& file : {entry.profile_name, entry.undo_package_name})
                if (file.is_valid())
                    named.insert(file.mbcs_str());
        }
        for (const char* name : {"work", "backup"})
            if (fs::is_directory(dir_.at(name)))
                for (const auto& file : fs::directory_iterator(dir_.at(name)))
                    if (file.is_regular_file())
                        there.insert(file.path().string());
        EXPECT_EQ(there, named);
        const auto* entry = all.entry();
        if (entry) {
            const bool error = should[4] == 'E';
            EXPECT_EQ(status(entry), word_of(should) + "/" + (error ? "E" : word_of(should)));
            EXPECT_EQ(entry->current_result, 0);
            EXPECT_TRUE(error || entry->operation_in_progress == km::o_none);
            EXPECT_EQ(entry->backup_availability != 0, fs::exists(backup_of(*entry)));
            EXPECT_EQ(entry->last_action, should[0] == 'I' ? 1 : 2);
        }
        if (tree.empty())
            return;
        auto is = picture_of(dir_.at("target"));
        const auto copies = std::erase_if(
            is, [](const auto& one) { return one.first.find(".km~") != std::string::npos; });
        EXPECT_EQ(copies != 0, should.substr(0, 2) == "IP" || should[2] == 'R');
        EXPECT_EQ(difference(is, ends_[tree]), "");
    }
    static std::string backup_of(const cm_catalog_entry& entry) {
        return entry.undo_package_name.is_valid() ? entry.undo_package_name.mbcs_str() : "/none";
    }
    static std::string word_of(const std::string& letters) {
        static const std::map<std::string, const char*> words = {
            {"--", "0"}, {"P-", "1"}, {"C-", "2"}, {"PP", "3"},
            {"PU", "4"}, {"CU", "5"}, {"CR", "6"}};
        return words.at(letters.substr(1, 2));
    }

    // Steps apart by ';', "OPERATION MODE = RESULT LETTERS TREE": result, letters and tree hold
    // what must come of it ("-" any tree). Mode letters below. Others: "fail CALL ACTION PHASE
    // NAME=RESULT", "mend" (nothing fails any more), "spoil" and "heal" a file of the package,
    // "block" and "free" the directory of backups, "kill POINT OPERATION MODE", "stop COUNT
    // OPERATION MODE" (asked for behind so many commands), "again" (what was cut goes on from its
    // profile), "refused OPERATION" (beside the gate).
    void play(const std::string& script) {
        SCOPED_TRACE(script);
        std::istringstream steps(script);
        for (std::string one; std::getline(steps, one, ';') && !HasFatalFailure();) {
            SCOPED_TRACE("at" + one);
            std::istringstream words(one);
            std::string word;
            words >> word;
            if (!side_step(word, words))
                step(word, words);
        }
    }
    void step(const std::string& op, std::istringstream& words) {
        std::string mode, result, should, tree;
        words >> mode;
        if (mode != "=")
            words >> result;
        else
            mode.clear();
        words >> result >> should >> tree;
        ASSERT_EQ(run(op, mode_of(mode)), std::atoi(result.c_str())) << told_;
        goes_on_ = false;
        expect_whole(should, tree == "-" ? "" : tree);
    }
    bool side_step(const std::string& word, std::istringstream& words) {
        const std::string file = dir_.at("target/etc/was_link");
        if (word == "fail") {
            std::string rest;
            std::getline(words >> std::ws, rest);
            const size_t at = rest.find('=');
            recorder::results[rest.substr(0, at)] = std::atoi(rest.c_str() + at + 1);
        } else if (word == "mend") {
            recorder::results.clear();
        } else if (word == "spoil") {
            std::ofstream(file) << "spoilt";
            set_time(file, packed_at + 100);
        } else if (word == "heal") {
            std::ofstream(file) << "a file now";
            set_time(file, packed_at);
        } else if (word == "block") {
            fs::remove(dir_.at("backup"));
            dir_.write("backup", "");
        } else if (word == "free") {
            fs::remove(dir_.at("backup"));
            fs::create_directory(dir_.at("backup"));
        } else if (word == "again") {
            goes_on_ = true;
        } else if (word == "refused") {
            std::string op;
            words >> op;
            EXPECT_EQ(run(op, 0), 9) << op;
        } else if (word == "kill") {
            killed(words);
        } else if (word == "stop") {
            stopped(words);
        } else {
            return false;
        }
        return true;
    }
    void killed(std::istringstream& words) {
        std::string point, op, mode;
        words >> point >> op >> mode;
        ASSERT_TRUE(dies_at(point, [&] { run(op, mode_of(mode)); })) << " is not on the way";
    }
    // In a process of its own: a request to stop stays.
    void stopped(std::istringstream& words) {
        static int left = 0;
        std::string op, mode;
        words >> left >> op >> mode;
        const pid_t child = ::fork();
        if (child == 0) {
            auto hooks = km::get_engine_hooks();
            hooks.progress = [](long, long, const km::cm_command*) {
                if (--left == 0)
                    km::request_stop();
            };
            km::set_engine_hooks(hooks);
            const int result = run(op, mode_of(mode));
            ::_exit(km::stop_requested() ? result : 99);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        // The first leg of an operation ends the process itself.
        EXPECT_TRUE(status == 0 || status == km::cm_command::success_retry << 8) << status;
    }
    static unsigned mode_of(const std::string& letters) {
        static const std::map<char, unsigned> bits = {
            {'u', km::m_undoable},      {'p', km::m_preferably_undoable},
            {'t', km::m_transactional}, {'w', km::m_undo_ability_transactional},
            {'c', km::m_auto_commit},   {'a', km::m_auto_accept},
            {'f', km::m_force},         {'r', km::m_repair},
            {'s', km::m_source},        {'i', km::m_intelligent_remove}};
        unsigned mode = 0;
        for (const char one : letters)
            mode |= bits.at(one);
        return mode;
    }

    bool goes_on_ = false;
    std::string told_;
    tree_picture before_;
    std::map<std::string, tree_picture> ends_;
};

} // namespace km_test
