// package_stream: a package that arrives from a server while it is installed
#pragma once

#include "operations.h"
#include "package_file.h"
#include "session.h"
#include "source_note.h"

#include <optional>
#include <string>

namespace kmhost {

enum class asks_server { now, when_read };

// Opens the stream at an offset, with a reader of entries over it. With a note it must be the file
// that the note tells of, and the digest goes on from its state there; without that state the
// stream is read from its start. The server is asked at once, or, where the note tells all that it
// would, with the first byte that is wanted. False: `result` says why, and the parent knows.
bool open_stream(const std::string& address, const source_note* note, long offset,
                 opened_package& into, outcome& result, asks_server when = asks_server::now);

// Opens the package that `command` is to put in place, and compares the digest of a file with the
// one that is expected. Where `goes_on`, the tree of a cut run comes from its profile and not from
// the server again. False: the session's result says why.
bool open_to_put(const operation_request& request, const std::string& command, bool goes_on,
                 session& at, opened_package& opened);

// Tells in `result` and to the parent why a stream failed; false.
bool tell_fault(const http_stream& stream, const std::string& address, outcome& result);

// Gives the package the fields of a run from a stream, which went on from `offset` (0: it begins).
void connect(km::cm_package& package, opened_package& opened, long offset);

// What a request tells of the note.
source_note noted_wishes(const operation_request& request);
// Notes where the package comes from, before its first change. What an earlier run of the same
// address noted is kept; one that goes on with another address needs a file of the same size there.
// False: `result` says why not.
bool note_source(const package_id& id, const std::string& address, const opened_package& opened,
                 bool goes_on, const source_note& wanted, outcome& result);

// The operation has ended: the note goes, unless it goes on behind a reboot.
void end_source(const session& at);
// Notes of no operation that is open.
void sweep_sources(const catalog_store& store);

// The profile of a run of `command` from that address that was cut, or with `behind_reboot` of one
// that waits for a reboot: with it the run goes on without the tree from the server. "" if there is
// none.
std::string profile_of_cut_run(const std::string& command, const std::string& address,
                               bool behind_reboot);

// As continue_run, with the data from the server.
bool continue_stream(session& at, opened_package& opened, km::cm_result& answer);

// Behind an operation that succeeded: reads what is left of the file and compares its digest, if
// one was asked for. Where it is right and that was wished, the backup goes. Where it differs, the
// operation is taken back, with its intent and its note, and the catalog is closed. False: that, or
// it could not be found out yet; `result` of the session says which.
bool settle_digest(session& at, opened_package& opened, worker_line& line);

// Takes back an operation whose stream cannot go on: from its backup, or by removing what was put
// in place. No server is asked.
void take_back(const package_id& id, long wait_seconds, worker_line& line, outcome& result);

// What a person is told about a package that waits for its stream.
std::string loss_words(const stream_loss& loss);
// What became of the stream of this process, if it has failed.
std::optional<stream_loss> current_loss();
// The catalog entry is about to be stored: the state of the digest must be there before it.
void keep_digest_state();

} // namespace kmhost
