// package_stream: a package that arrives from a server while it is installed
// format: docs/formats/stream-source.md
// invariants: parts of two files are never mixed; a run goes on at the command and the byte that
// its profile tells
#include "package_stream.h"

#include "continue_run.h"
#include "data_entry.h"
#include "engine_run.h"
#include "intent.h"
#include "location.h"
#include "lookup.h"
#include "reboot.h"

#include <filesystem>

namespace kmhost {

namespace {

// What this process reads, for its end and for the catalog entries that it stores.
struct {
    const http_stream* stream = nullptr;
    stream_digest* digest = nullptr;
    const km::cm_package* package = nullptr;
    std::string address;
} current;

// Before the tree is there, a cut run of the same address tells.
package_id current_id() {
    if (current.package)
        return {current.package->name.mbcs_str(), current.package->version.mbcs_str()};
    for (const auto& cut : read_intents())
        if (cut.file == current.address)
            return cut.id;
    return {};
}

const char* id_of(net_fault fault) {
    switch (fault) {
    case net_fault::missing:
        return "not_found";
    case net_fault::changed:
        return "source_changed";
    case net_fault::stopped:
        return "stopped";
    default:
        return "network";
    }
}

// A reader that begins in front of the tree, where nothing of the package was run yet, passes it.
bool stands_at(opened_package& opened, long offset) {
    while (opened.stream->position() < offset)
        if (opened.stream->ignore(offset - opened.stream->position()) < 1)
            return false;
    return true;
}

} // namespace

std::optional<stream_loss> current_loss() {
    if (!current.stream || current.stream->fault() == net_fault::none ||
        current.stream->fault() == net_fault::stopped)
        return std::nullopt;
    const package_id id = current_id();
    stream_loss loss;
    loss.can_be_retried = current.stream->fault() == net_fault::lost;
    loss.has_changed = current.stream->fault() == net_fault::changed;
    loss.address = current.address;
    loss.reason = current.stream->reason();
    loss.offset = current.stream->position();
    loss.package = id.name.empty() ? "" : id.text();
    loss.is_pending = !id.name.empty() && intent_of(id);
    if (const auto note = loss.is_pending ? source_of(id) : std::nullopt)
        loss.goes_back = note->goes_back;
    return loss;
}

bool tell_fault(const http_stream& stream, const std::string& address, outcome& result) {
    const auto loss = current_loss();
    tell_lost_stream();
    if (loss && loss->is_pending) {
        constexpr const char* waits = "pending";
        result.fail(exit_busy, id_of(stream.fault()), loss_words(*loss), waits);
        return false;
    }
    const bool missing = stream.fault() == net_fault::missing;
    result.fail(missing ? exit_not_found : exit_failed, id_of(stream.fault()),
                address + " cannot be read: " + stream.reason() + ". Nothing was changed.");
    return false;
}

std::string loss_words(const stream_loss& loss) {
    if (loss.has_changed)
        return loss.address + " is another file than before: " + loss.reason +
               ". What was done with its first part is kept. 'kmctl resume " + loss.package +
               "' goes on if the old file comes back, 'kmctl resume --back " + loss.package +
               "' takes it back, and 'kmctl install --force " + loss.address +
               "' installs what is there now.";
    return "The stream from " + loss.address + " ended at byte " + std::to_string(loss.offset) +
           ": " + loss.reason + ". What was done so far is kept; 'kmctl resume " + loss.package +
           "' goes on there.";
}

bool open_stream(const std::string& address, const source_note* note, long offset,
                 opened_package& into, outcome& result, asks_server when) {
    if (const std::string fault = fault_of_address(address); !fault.empty()) {
        result.fail(exit_usage, "usage", address + " cannot be used: " + fault + ".");
        return false;
    }
    km::end_data_ahead();
    into.reader.reset();
    into.stream = std::make_unique<http_stream>(address, read_net_settings());
    into.stream->inhibit(1); // the reader only borrows it
    current = {into.stream.get(), nullptr, current.package, address};
    long start = offset;
    if (into.wants_digest || (note && !note->expected.empty())) {
        into.digest = std::make_unique<stream_digest>();
        const bool goes_on = note && note->states.count(offset) &&
                             into.digest->restore(offset, note->states.at(offset));
        start = goes_on ? offset : 0;
        into.stream->set_digest(into.digest.get());
        current.digest = into.digest.get();
    }
    if (note)
        into.stream->expect(note->identity);
    into.stream->change_offset(start);
    const bool later = when == asks_server::when_read && note && !into.digest;
    if (!later && (!into.stream->open() || !stands_at(into, offset)))
        return tell_fault(*into.stream, address, result);
    into.reader = std::make_unique<km::unzipping_channel>(into.stream.get());
    into.reader->set_skip_tail(0);
    into.reader->set_bytes_read(offset);
    return true;
}

void connect(km::cm_package& package, opened_package& opened, long offset) {
    constexpr int machine_and_user = 3; // as from a file, unless it is for a user alone
    current.package = &package;
    package.connected = 1;
    package.block_size = std::max(0L, opened.stream->identity().size);
    package.restart_offset = offset;
    package.not_compressed_installation = 0; // a retry runs the command again
    package.net_channel = opened.stream.get();
    package.input_channel = opened.reader.get();
    km::begin_data_ahead(opened.reader.get(), *opened.stream);
    if (package.package_mask == 1)
        package.package_mask = machine_and_user;
}

source_note noted_wishes(const operation_request& request) {
    source_note note;
    note.expected = request.expected;
    note.goes_back = request.goes_back;
    note.accepts = request.accepts;
    return note;
}

bool note_source(const package_id& id, const std::string& address, const opened_package& opened,
                 bool goes_on, const source_note& wanted, outcome& result) {
    source_note note = wanted;
    const auto before = source_of(id);
    const bool same_place = before && before->address == address;
    if (opened.stream)
        note.identity = opened.stream->identity();
    if (goes_on && before && opened.stream) {
        source_identity then = before->identity;
        if (!same_place) // only the size can be compared
            then.etag = then.modified = "";
        if (const auto what = difference(then, note.identity); !what.empty()) {
            result.fail(exit_refused, "source_changed",
                        address + " is not the file that " + id.text() + " was begun with, from " +
                            before->address + ": " + what + ". '--force' begins anew.",
                        "refused");
            return false;
        }
    }
    if (before && (goes_on || !opened.stream)) {
        if (same_place) {
            note.identity = before->identity;
            note.states = before->states;
        }
        if (note.expected.empty())
            note.expected = before->expected;
        note.goes_back = note.goes_back || before->goes_back;
        note.accepts = note.accepts || before->accepts;
    }
    note.address = address;
    return write_source(id, note, result);
}

void keep_digest_state() {
    if (!current.digest || !current.package)
        return;
    const package_id id = current_id();
    const long offset = current.package->current_offset;
    auto note = source_of(id);
    if (!note || note->states.count(offset))
        return;
    const std::string state = current.digest->state_at(offset);
    if (state.empty())
        return;                     // then the stream is read from its start
    while (note->states.size() > 1) // the one that the stored entry speaks of, and this
        note->states.erase(note->states.begin());
    note->states[offset] = state;
    outcome ignored; // as above
    write_source(id, *note, ignored);
}

void end_source(const session& at) {
    const auto* entry = at.entry();
    if (!entry || !waits_for_reboot(*entry))
        drop_source(at.id);
}

void sweep_sources(const catalog_store& store) {
    std::error_code error;
    std::vector<package_id> stale;
    for (const auto& one :
         std::filesystem::directory_iterator(setting("working_dir") + "/source", error)) {
        const package_id id = parse_id(one.path().filename().string());
        const auto* entry = store.find(id.name, id.version);
        if (!intent_of(id) && !(entry && waits_for_reboot(*entry)))
            stale.push_back(id);
    }
    for (const auto& id : stale)
        drop_source(id);
}

namespace {
// What waits for a reboot was not cut: only its entry tells of it.
std::string profile_behind_reboot(const std::string& address) {
    catalog_store store;
    outcome ignored;
    if (!store.open(access_kind::read, 0, ignored))
        return {};
    for (const auto& one : find_packages(store.catalog(), "")) {
        const auto note = waits_for_reboot(*one.entry) ? source_of(one.id) : std::nullopt;
        if (note && note->address == address)
            return one.entry->profile_name.mbcs_str();
    }
    return {};
}
} // namespace

std::string profile_of_cut_run(const std::string& command, const std::string& address,
                               bool behind_reboot) {
    catalog_store store;
    outcome ignored;
    for (const auto& cut : read_intents()) {
        if (cut.command != command || cut.file != address || !source_of(cut.id) ||
            !store.open(access_kind::read, 0, ignored))
            continue;
        const auto* entry = store.find(cut.id.name, cut.id.version);
        const bool ended = entry && stands_installed(*entry);
        if (ended || goes_on_from_profile(cut.id, entry, cut.mode))
            return entry->profile_name.mbcs_str();
    }
    return behind_reboot ? profile_behind_reboot(address) : "";
}

bool continue_stream(session& at, opened_package& opened, km::cm_result& answer) {
    const km::cm_catalog_entry entry = *at.entry();
    const auto note = source_of(at.id);
    const auto package = open_profile(entry.profile_name.mbcs_str(), at.messages, at.result());
    if (!package)
        return false;
    if (!note) {
        at.result().fail(exit_failed, "source",
                         "It is not known any more where the package came from.");
        return false;
    }
    at.take(*package);
    current.package = package.get();
    const long offset = package->current_offset;
    // Behind a reboot there may be nothing left to read, and no network yet.
    const auto when = waits_for_reboot(entry) ? asks_server::when_read : asks_server::now;
    if (!open_stream(note->address, &*note, offset, opened, at.result(), when))
        return false;
    connect(*package, opened, offset);
    const int reboot = is_noted_for_reboot(at.id) ? int{km::m_during_reboot} : 0;
    answer = package->execute(km::a_execute, entry.entry_mode | reboot, entry.call_argument);
    km::end_data_ahead(); // it knows the package
    package->input_channel = nullptr;
    package->net_channel = nullptr;
    current.package = nullptr;
    return true;
}

bool open_to_put(const operation_request& request, const std::string& command, bool goes_on,
                 session& at, opened_package& opened) {
    const bool streamed = is_address(request.target);
    const std::string profile =
        streamed && goes_on && !request.dry_run
            ? profile_of_cut_run(command, request.target,
                                 request.resuming && (request.mode & km::m_during_reboot))
            : "";
    if (!profile.empty()) {
        opened.package = open_profile(profile, at.messages, at.result());
        return opened.package != nullptr;
    }
    if (!streamed && !request.expected.empty() &&
        !has_digest(request.target, request.expected, at.result()))
        return false;
    opened.wants_digest = !request.expected.empty() && !request.dry_run;
    return open_package(request.target, request.definitions, at.messages, opened, at.result());
}

} // namespace kmhost
