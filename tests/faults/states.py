#!/usr/bin/env python3
"""A record of steps whose process is killed, or whose disk fails, at each disk-changing call: what
was told as recorded is recorded, at most one step more is, and the next run does the rest: [I-25]."""
import os
import subprocess
import sys
import tempfile

FAULTS, PROGRAM, LIBRARIES, STRIDE = *sys.argv[1:4], int(sys.argv[4])
STEPS = 3


def call(home, *words, under=()):
    # A traced process cannot be looked at by the leak checker.
    around = dict(os.environ, KM_STATES_HOME=home, HOME=home, SPEDITOR_LIB_PATH=home,
                  ASAN_OPTIONS="detect_leaks=0")
    done = subprocess.run([*under, PROGRAM, *words, str(STEPS)], env=around, capture_output=True,
                          text=True)
    return done.returncode, done.stdout.split(), done.stderr


def trial(how, at, *error):
    with tempfile.TemporaryDirectory() as home:
        with open(home + "/libs.znp", "w") as libs:
            libs.write(LIBRARIES + "/libkmcore\n")
        code, told, words = call(home, "run", under=(FAULTS, how, *([str(at)] if at else []), *error))
        note = (how, at, error, code, told)
        told = [step for step in told if step != "ERROR"]  # a file that could not be made
        _, kept, _ = call(home, "show")
        assert "ERROR" not in kept, (note, kept)
        # What was told before the last failure holds: a failed disk keeps no later step.
        assert kept[:len(told)] == told and (how != "kill" or len(kept) <= len(told) + 1), (note, kept)
        code, told, _ = call(home, "run")
        assert code == 0 and told == ["s%d" % i for i in range(STEPS)], (note, kept, told)
        return words


calls = int(trial("count", 0).split()[-1])
assert calls > 4 * STEPS, calls
for at in range(1, calls + 1, STRIDE):
    trial("kill", at)
    trial("fail", at, "28")
    trial("once", at, "5")
print(calls, "calls, every", STRIDE, "killed, failed with a full disk and once with an I/O error")
