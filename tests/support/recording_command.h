// recording_command: fake commands that note what was asked of them
#pragma once

#include "base/msg_supp.h"
#include "command.h"
#include "package.h"

#include "support/engine_home.h"

#include <functional>
#include <string>
#include <vector>

namespace km_test {

inline km::ustring u(const std::string& text) { return km::ustring(text.c_str()); }

// Texts of a message list, each behind its number.
inline std::string told(const km::spmessage& messages) {
    std::string all;
    const auto* list = messages.get_message();
    for (int i = 0; list && i < messages.get_count(); ++i)
        all += std::to_string(list->entries[static_cast<size_t>(i)].key) + " ";
    return all;
}

// Notes each call in `log` as "name " (do_execute), "can:name ", "skip:name " and so on. In a
// stream it passes for a restart command, so that a profile with it can be read back.
class recording_command : public km::cm_command {
  public:
    recording_command(const std::string& label, std::string& calls, int outcome = 0)
        : name(label), log(&calls), run(static_cast<km::cm_result>(outcome)) {}

    km::codable* clone() const override { return new recording_command(*this); }
    const char* codable_name() const override { return kind; }
    long codable_version() const override { return 1; }
    km::ustring get_name() override { return u(name); }
    void can_execute(int, int) override { answer("can:", can); }
    void can_backup(int) override { answer("can_backup:", backup); }
    void skip_data() override { answer("skip:", skip); }
    void save_command(km::unzipping_channel*, km::zipping_channel*) override { answer("s:", run); }
    void save_command(km::zipping_channel*) override { answer("s:", run); }
    void load_command(const int) override { answer("l:", run); }
    int get_timeout(int*, int, bool, bool) override { return timeout; }
    int is_bootable(int, int) override { return bootable; }
    void do_execute(int, int) override {
        if (on_run)
            on_run(*this);
        execute_in_commit = in_commit;
        answer("", run);
    }
    km::cm_command* get_undo_command(int) override {
        answer("undo:", undo);
        return undo == km::cm_command::success && has_undo ? new recording_command("-" + name, *log)
                                                           : nullptr;
    }

    std::string name;
    std::string* log;
    km::cm_result run;
    km::cm_result can = km::cm_command::success;
    km::cm_result backup = km::cm_command::success;
    km::cm_result skip = km::cm_command::success;
    km::cm_result undo = km::cm_command::success;
    bool has_undo = true;
    int in_commit = 0;
    int bootable = 0;
    int timeout = 0;
    const char* kind = "com.ombrel.sd.cmObjects.CmRestart";
    std::function<void(recording_command&)> on_run;

  private:
    void answer(const char* call, km::cm_result outcome) {
        *log += call + name + " ";
        result = outcome;
    }
};

// A package without stop flag and with a message list, its children named by letters: "a3 b0" is a
// child a whose run ends with 3, and a child b.
class tree {
  public:
    explicit tree(const std::string& children = "") {
        package.name = u("pkg");
        package.version = u("1.0");
        package.catalog_key = km::cm_catalog_key(package.name, package.version);
        package.messages = &messages;
        package.stop_on_failure = 0;
        add(package, children);
    }
    std::vector<recording_command*> add(km::cm_composite_command& to, const std::string& children) {
        std::vector<recording_command*> made;
        for (size_t at = 0; at < children.size(); at = children.find_first_not_of(' ', at)) {
            const size_t end = std::min(children.find(' ', at), children.size());
            const std::string digits = children.substr(at + 1, end - at - 1);
            made.push_back(new recording_command(children.substr(at, 1), log,
                                                 digits.empty() ? 0 : std::atoi(digits.c_str())));
            to.add(made.back(), nullptr);
            at = end;
        }
        commands.insert(commands.end(), made.begin(), made.end());
        return made;
    }
    km::cm_composite_command& inner(int stop) {
        auto* composite = new km::cm_composite_command(stop);
        package.add(composite, nullptr);
        return *composite;
    }
    // The calls of the walk, and its result behind them.
    std::string walk(int action = km::a_execute, int phase = km::p_do) {
        log.clear();
        package.km::cm_composite_command::do_execute(action, phase);
        return log + std::to_string(package.result);
    }
    recording_command& operator[](size_t index) { return *commands[index]; }

    std::string log;
    km::spmessage messages;
    km::cm_package package;
    std::vector<recording_command*> commands; // the package's own
};

} // namespace km_test
