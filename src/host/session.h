// session: one run of the engine on one package
#pragma once

#include "base/msg_supp.h"
#include "catalog_store.h"
#include "package.h"
#include "words.h"
#include "worker.h"

namespace kmhost {

bool is_success(km::cm_result result);

// The catalog opened for one command, and what its operations tell. Lives in a worker.
class session {
  public:
    session(worker_line& line, outcome& result) : line_(line), result_(result) {}

    // Opens the catalog and sets the hooks. False: the outcome says why.
    bool open(access_kind kind, long wait_seconds);
    // Gives the package what an operation needs; from now on this session is about it.
    void take(km::cm_package& package);
    const km::cm_catalog_entry* entry() const { return store.find(id.name, id.version); }
    // Asks the gate; a refusal is told in words. `operation` is km::operation, `word` its name.
    bool passes_gate(km::cm_package& package, int operation, int action, unsigned mode,
                     const char* word);
    // The same for a dry run: changes nothing, also where the engine would note an error.
    bool would_pass_gate(km::cm_package& package, int operation, int action, unsigned mode,
                         const char* word);
    // Tells what the engine's result means: `done` is what the package is then ("installed").
    void finish(const km::cm_package& package, km::cm_result engine_result, const char* done,
                const char* word);
    // Behind a gate that refused what a cut run of this very command had begun: a settled entry is
    // what that run led to, and only its last steps were cut. The refusal is taken back then, and
    // the end told as by `finish`.
    bool had_ended(bool was_cut, const char* done);
    outcome& result() { return result_; }

    km::spmessage messages;
    catalog_store store;
    package_id id;

  private:
    void tell_state_failure(const km::cm_package& package);
    void tell_failure(const km::cm_package& package, const char* word);

    worker_line& line_;
    outcome& result_;
};

// Whether an entry tells of an operation that was cut, and of no error.
bool is_interrupted(const km::cm_catalog_entry& entry);
bool is_in_error(const km::cm_catalog_entry& entry);
// Committed, with nothing pending.
bool stands_installed(const km::cm_catalog_entry& entry);

} // namespace kmhost
