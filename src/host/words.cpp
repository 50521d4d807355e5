// words: states and results as people say them
// no format
// invariant: every refusal says what can be done next
#include "words.h"

#include "command.h"
#include "package_version.h"
#include "reboot.h"
#include "source_note.h"
#include "status_words.h"

namespace kmhost {

package_id parse_id(const std::string& text) {
    const size_t at = text.find('^');
    if (at == std::string::npos)
        return {text, ""};
    return {text.substr(0, at), text.substr(at + 1)};
}

std::string letters_of(const km::cm_catalog_entry* entry) {
    if (!entry)
        return "-----";
    char text[6];
    km::dbstatus_to_str(entry->get_dbstatus(), text);
    return text;
}

std::string state_words(const km::cm_catalog_entry* entry) {
    if (!entry)
        return "not installed";
    const bool error = (entry->cm_status | entry->current_cm_status) & km::cs_error;
    const int status = (error ? entry->cm_status : entry->current_cm_status) & (km::cs_error - 1);
    const bool removes = entry->last_action == km::a_reverse;
    const char* const install_words[] = {
        "being installed",
        "prepared, not committed",
        "installed",
        "prepared, a backup will be made at commit",
        "prepared with a backup",
        "installed, undo is possible",
        "installed, an undo is prepared",
    };
    const char* const remove_words[] = {
        "being removed",
        "its removal is prepared",
        "removed",
        "its removal is prepared, a backup will be made at commit",
        "its removal is prepared with a backup",
        "removed, undo is possible",
        "removed, an undo is prepared",
    };
    std::string words = status >= 0 && status < km::cm_states
                            ? (removes ? remove_words : install_words)[status]
                            : "in an unknown state";
    if (found_different(*entry))
        words += ", but in error: what stands differs from what was installed";
    else if (error)
        words += ", but in error: its last operation failed";
    else if (entry->current_result >= 1 && entry->current_result <= 5)
        words += ", waiting for a reboot";
    else if (entry->current_result == 6)
        words += ", interrupted";
    if (entry->is_hidden())
        words += ", hidden";
    else if (entry->is_discovered())
        words += ", discovered";
    return words;
}

std::string it_is(const km::cm_catalog_entry* entry) {
    const std::string words = state_words(entry);
    const bool is_sentence = words.compare(0, 4, "its ") == 0;
    return (is_sentence ? "" : "it is ") + words + " (" + letters_of(entry) + ")";
}

bool is_cut_at_checkpoint(const package_id& id, const km::cm_catalog_entry& entry) {
    return entry.current_result == km::cm_command::success_reboot_now && source_of(id) &&
           !is_noted_for_reboot(id);
}

namespace {
// As people are to see it.
km::cm_catalog_entry seen(const package_id& id, const km::cm_catalog_entry& entry) {
    km::cm_catalog_entry copy(entry);
    if (is_cut_at_checkpoint(id, entry))
        copy.current_result = km::cm_command::success_retry;
    return copy;
}
} // namespace

std::string state_words(const package_id& id, const km::cm_catalog_entry* entry) {
    if (!entry)
        return state_words(entry);
    const km::cm_catalog_entry copy = seen(id, *entry);
    return state_words(&copy);
}

std::string it_is(const package_id& id, const km::cm_catalog_entry* entry) {
    if (!entry)
        return it_is(entry);
    const km::cm_catalog_entry copy = seen(id, *entry);
    return it_is(&copy);
}

bool found_different(const km::cm_catalog_entry& entry) {
    return entry.current_cm_status == km::cs_error && entry.last_action == km::a_execute &&
           (entry.cm_status == km::cs_committed || entry.cm_status == km::cs_committed_undoable ||
            entry.cm_status == km::cs_committed_undo_prepared) &&
           (entry.entry_operation_result == km::cm_command::success ||
            entry.entry_operation_result == km::cm_command::warning);
}

namespace {

std::string call(const char* command, const package_id& id) {
    return std::string("'kmctl ") + command + " " + id.text() + "'";
}

std::string advice_on_error(const package_id& id, const km::cm_catalog_entry& entry) {
    const bool installs = entry.last_action == km::a_execute;
    switch (entry.cm_status) {
    case km::cs_prepared:
    case km::cs_prepared_undo_prepared:
    case km::cs_prepared_undoable:
        return "It can be neither committed nor rolled back any more. " +
               (installs ? call("remove --force", id) + " drops what is prepared, and "
                         : call("remove --force", id) + " removes it, and ") +
               "'kmctl install --force FILE' installs it from its package file.";
    case km::cs_committed_undoable:
        return "Remove the cause, then " + call("undo", id) +
               " can be tried again; 'kmctl install --force FILE' installs it again from its "
               "package file, and gives up the undo.";
    default:
        return "'kmctl install --force FILE' installs it again from its package file, and " +
               call("remove --force", id) + " takes it away.";
    }
}

} // namespace

std::string advice_on_difference(const package_id& id, const km::cm_catalog_entry& entry) {
    if (entry.cm_status == km::cs_committed)
        return call("repair", id) + " puts it right again, and " + call("remove --force", id) +
               " removes the package and leaves what was changed.";
    std::string text = "Once it is put back by hand, " + call("verify", id) + " clears the error";
    if (entry.cm_status == km::cs_committed_undoable)
        text += "; " + call("undo", id) + " takes the package back as it is";
    else
        text += ", and " + call("commit", id) + " carries out the undo";
    return text + "; 'kmctl install --force FILE' puts it in place again and gives up the undo.";
}

std::string advice(const package_id& id, const km::cm_catalog_entry& entry) {
    if (found_different(entry))
        return call("verify", id) + " tells what differs. " + advice_on_difference(id, entry);
    if ((entry.cm_status | entry.current_cm_status) & km::cs_error)
        return advice_on_error(id, entry);
    if (is_cut_at_checkpoint(id, entry))
        return call("resume", id) + " goes on where it stopped.";
    if (entry.current_result >= 1 && entry.current_result <= 5)
        return "It waits for a reboot of this machine; 'kmctl resume " + id.text() +
               "' goes on behind it.";
    if (entry.current_result == 6)
        return "Run the same command again: it goes on where it stopped.";
    return "";
}

std::string next_steps(const package_id& id, const km::cm_catalog_entry& entry) {
    if (const std::string wrong = advice(id, entry); !wrong.empty())
        return wrong;
    const bool installs = entry.last_action == km::a_execute;
    switch (entry.current_cm_status) {
    case km::cs_prepared:
    case km::cs_prepared_undo_prepared:
    case km::cs_prepared_undoable:
        return call("commit", id) + (installs ? " puts it in place, " : " removes it, ") +
               call("rollback", id) + (installs ? " takes it back." : " keeps it.");
    case km::cs_committed_undoable:
        return call("undo", id) + (installs ? " takes it back, " : " brings it back, ") +
               call("accept", id) + " makes it final.";
    case km::cs_committed_undo_prepared:
        return call("commit", id) + " carries out the undo; nothing drops it any more.";
    default:
        return "";
    }
}

const char* installed_words(const km::cm_catalog_entry* entry) {
    switch (entry ? entry->cm_status : km::cs_committed) {
    case km::cs_prepared:
    case km::cs_prepared_undo_prepared:
    case km::cs_prepared_undoable:
        return "prepared; 'kmctl commit' puts it in place, 'kmctl rollback' takes it back";
    case km::cs_committed_undoable:
        return "installed; 'kmctl undo' takes it back, 'kmctl accept' makes it final";
    default:
        return "installed";
    }
}

const char* removed_words(const km::cm_catalog_entry* entry) {
    switch (entry ? entry->cm_status : km::cs_committed) {
    case km::cs_committed_undoable:
        return "removed; 'kmctl undo' brings it back, 'kmctl accept' makes it final";
    case km::cs_committed:
        return "removed";
    default:
        return "prepared for its removal; 'kmctl commit' removes it, 'kmctl rollback' keeps it";
    }
}

const char* undone_words(const km::cm_catalog_entry* entry) {
    if (!entry)
        return "undone";
    return entry->cm_status == km::cs_committed_undo_prepared
               ? "prepared for its undo; 'kmctl commit' carries it out, and nothing drops it"
               : "undone: it is installed again";
}

namespace {

// Of a package that is simply installed, or removed: what the operation would need.
std::string lacking(const std::string& operation) {
    if (operation == "commit" || operation == "rollback")
        return "Nothing is prepared.";
    if (operation == "undo" || operation == "accept")
        return "It has no backup: only an operation with --undoable makes one, and an upgrade.";
    return "";
}

} // namespace

void tell_refusal(int gate_answer, const char* operation, const package_id& id,
                  const km::cm_catalog_entry* entry, outcome& result) {
    const std::string head = std::string("The ") + operation + " of " + id.text() + " is refused";
    std::string next = entry ? next_steps(id, *entry) : "";
    if (next.empty())
        next = lacking(operation);
    const std::string tail = next.empty() ? "" : " " + next;
    switch (gate_answer) {
    case 3:
        result.fail(exit_not_found, "not_found",
                    id.text() + " is not installed. 'kmctl list' shows what is.");
        return;
    case 4:
        result.fail(exit_refused, "reboot",
                    head + ": an earlier operation takes effect at the next reboot. Reboot first.",
                    "refused");
        return;
    case 5:
        result.fail(exit_refused, "hidden", head + ": the package is hidden.", "refused");
        return;
    case -1:
        result.fail(exit_failed, "catalog", head + ": its catalog entry cannot be read.");
        return;
    default:
        result.fail(exit_refused, "state", head + ": " + it_is(id, entry) + "." + tail, "refused");
    }
}

package_facts facts_of(const package_id& id, const km::cm_catalog_entry* entry) {
    return {id.name, id.version, letters_of(entry),
            entry ? km::result_text(entry->entry_operation_result) : ""};
}

std::string fault_of_name(const std::string& name) {
    constexpr size_t longest = 128;
    if (name.empty() || name.size() > longest)
        return "a package name has 1 to 128 bytes";
    if (name[0] == '.' || name[0] == '-')
        return "a package name does not begin with '.' or '-'";
    for (const unsigned char c : name)
        if (c <= ' ' || c == 0x7f ||
            std::string("*?^/\\\"'`;,:!$()<>|&#%").find(c) != std::string::npos)
            return "a package name holds no blanks, control characters or any of "
                   "* ? ^ / \\ \" ' ` ; , : ! $ ( ) < > | & # %";
    return "";
}

std::string fault_of_version(const std::string& version) {
    if (!km::sp_check_version(km::ustring(version.c_str())) ||
        version.find('/') != std::string::npos || version.find("$(") != std::string::npos)
        return "a version has 1 to 64 bytes, no dot at its ends, no two dots in a row, and none of "
               "* ? ! , ; : ^ / ' \" and blank";
    for (const unsigned char c : version)
        if (c < ' ' || c == 0x7f)
            return "a version holds no control characters";
    return "";
}

} // namespace kmhost
