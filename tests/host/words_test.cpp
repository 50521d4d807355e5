// Every state that something can be done about names what.
#include "words.h"

#include "engine_types.h"
#include "status_words.h"

#include "support/has.h"

#include <gtest/gtest.h>

namespace {

constexpr int fine = 0, failed = 9;

struct state {
    const char* letters;
    int action, status, now, result;
    const char* says[3]; // commands that are named; null for no more
    const char* never;   // what would be refused
};

km::cm_catalog_entry entry_of(const state& one) {
    km::cm_catalog_entry entry;
    entry.last_action = one.action;
    entry.cm_status = one.status;
    entry.current_cm_status = one.now;
    entry.entry_operation_result = one.result;
    return entry;
}

} // namespace

TEST(Words, EveryStateNamesItsWayOut) {
    constexpr int in = km::a_execute, out = km::a_reverse, error = km::cs_error;
    const state all[] = {
        {"IC--E", in, 2, error, fine, {"verify", "repair", "remove --force"}, "accept"},
        {"IC--E", in, 2, error, failed, {"install --force", "remove --force"}, "accept"},
        {"ICU-E", in, 5, error, fine, {"verify", "undo", "install --force"}, "repair"},
        {"ICU-E", in, 5, error, failed, {"undo", "install --force"}, "repair"},
        {"ICR-E", in, 6, error, fine, {"verify", "commit", "install --force"}, "repair"},
        {"ICR-E", in, 6, error, failed, {"install --force", "remove --force"}, "commit"},
        {"IP--E", in, 1, error, failed, {"remove --force", "install --force"}, "rollback p"},
        {"IPP-E", in, 3, error, failed, {"remove --force", "install --force"}, "rollback p"},
        {"RP--E", out, 1, error, failed, {"remove --force", "install --force"}, "rollback p"},
        {"RCU-E", out, 5, error, failed, {"undo", "install --force"}, "repair"},
        {"I---E", in, error, error, failed, {"install --force", "remove --force"}, "repair"},
        {"IP---", in, 1, 1, fine, {"commit", "rollback"}, "force"},
        {"RPU--", out, 4, 4, fine, {"commit", "rollback"}, "force"},
        {"ICU--", in, 5, 5, fine, {"undo", "accept"}, "force"},
        {"ICR--", in, 6, 6, fine, {"commit"}, "accept"},
    };
    const kmhost::package_id id{"p", "1"};
    for (const auto& one : all) {
        const auto entry = entry_of(one);
        EXPECT_EQ(kmhost::letters_of(&entry), one.letters);
        const std::string text = kmhost::next_steps(id, entry);
        for (const char* word : one.says) {
            if (!word)
                continue;
            EXPECT_HAS(text, std::string("'kmctl ") + word)
                << one.letters << ": no " << word << " in: " << text;
        }
        EXPECT_EQ(text.find(std::string("'kmctl ") + one.never), std::string::npos) << text;
        kmhost::outcome refused;
        kmhost::tell_refusal(1, "accept", id, &entry, refused);
        EXPECT_HAS(refused.messages.back().text, text);
    }
}
