// engine_hooks: what a host may hook into the engine
#pragma once

namespace km {

class cm_command;
class cm_package;

// Functions of the host, all optional; an unset one does nothing and counts as success. The package
// that they get is lent for the call.
struct engine_hooks {
    // A reboot is wanted (restart_type 1: shut down, else restart). The host carries it out after
    // the operation returned and the catalog is closed.
    void (*request_restart)(cm_package* package, int restart_type) = nullptr;
    // Takes such a request back.
    void (*cancel_restart)(cm_package* package) = nullptr;
    // Makes sure that the operation goes on after the reboot; `needed` is the engine's decision
    // whether that has to be. 1, or 0.
    int (*prepare_restart)(cm_package* package, int needed) = nullptr;
    // The inverse. 1, or 0.
    int (*unprepare_restart)(cm_package* package) = nullptr;
    // An entry is about to be stored: what make_durable has to do can begin beside the caller.
    void (*expect_durable)() = nullptr;
    // Makes all files that the objects changed last through a power cut. Called before the catalog
    // entry is stored, and once more behind it. 1, or 0: then the entry is not stored.
    int (*make_durable)() = nullptr;
    // The library is about to end the process.
    void (*on_exit)(int status, const char* why) = nullptr;
    // A command of the tree has ended; `total` is the number of commands of the tree.
    void (*progress)(long done, long total, const cm_command* command) = nullptr;
};

// Replaces the hooks of this process.
void set_engine_hooks(const engine_hooks& hooks);
const engine_hooks& get_engine_hooks();

} // namespace km
