// base/mrtwrap: directories and environment of the runtime
#pragma once

namespace km {

// Directories that the agent's runtime hands in; all null until mrt_set_globals.
struct mrt_globals {
    const char* run = nullptr;
    const char* bin = nullptr;
    const char* lib = nullptr;
    const char* cache_base = nullptr;
};

// Copies the texts; null forgets all.
void mrt_set_globals(const mrt_globals* globals);

// Texts in static buffers of 1025 bytes, valid until the next call of the same function. Empty
// where the runtime told nothing. Null only from mrt_get_cache_base.
const char* mrt_get_cache_base();
const char* mrt_get_load_dir();
const char* stage();
const char* upgradedir();
const char* temp();
const char* systemdir();
const char* bindir();
const char* rundir();
const char* libdir();
// Last component of the run directory.
const char* uniqueidentifier();
// The binary directory without its last three components.
const char* installbase();
const char* base_bindir();
const char* installvol();
const char* volume(int n);

// Short name of the platform for (0, 2).
const char* get_interp(int reserved, int form);
// Length of the value of a name ("INTERP", "BIN", ...), at most 1024, written with its terminator
// to `out` (1025 bytes); -1 for an unknown name.
int get_var_value(const char* name, char* out);
// A new text (mg_free), or null if the name is unknown or its value empty.
char* mrt_expand_variable(const char* name);

// Copies at most `most` bytes of `from` and ends them; `to` has room for one more. Null counts as
// empty. Returns the length.
int varncpy(char* to, const char* from, int most);

enum correct_flag : int { correct_slashes = 1, correct_doubled = 2 };
// Works in place on at most 1024 bytes: drops quotes, and by the flags turns every '\\' into '/'
// and collapses doubled separators. Returns the path.
char* CorrectPath(char* path, int flags);

// getenv: null if absent.
const char* cpl_getenv(const char* name);
const char* cpl_tmpdir();

} // namespace km
