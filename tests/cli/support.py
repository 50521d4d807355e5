"""What the end-to-end tests of kmctl have in common: a scratch directory with a root and a state,
the program run in it, and pictures of directories that can be compared."""
import hashlib
import json
import os
import shutil
import stat
import subprocess
import tempfile
import unittest

KMCTL = os.environ["KMCTL"]
FAULTS = os.environ.get("FAULTS", "")


class Ended:
    """One call of the program: its status and what it wrote."""

    def __init__(self, done):
        self.code = done.returncode
        self.out = done.stdout.decode("utf-8", "surrogateescape")
        self.err = done.stderr.decode("utf-8", "surrogateescape")

    def __repr__(self):
        return "exit %d\n--- out\n%s\n--- err\n%s" % (self.code, self.out, self.err)


def picture(top, times=True):
    """Everything below a directory: type, rights, owner, time, content, count of hard links."""
    top = os.fsencode(top)
    found = {}

    def look(path):
        about = os.lstat(path)
        one = [stat.S_IFMT(about.st_mode), oct(about.st_mode & 0o7777), about.st_uid, about.st_gid]
        if times:
            one.append(about.st_mtime_ns)
        if stat.S_ISLNK(about.st_mode):
            one.append(os.readlink(path))
        if stat.S_ISREG(about.st_mode):
            one += [digest_of(path, about), about.st_nlink]
        found[os.path.relpath(path, top)] = tuple(one)
        if stat.S_ISDIR(about.st_mode):
            for name in names_in(path, about):
                look(os.path.join(path, name))

    if os.path.lexists(top):
        look(top)
    return found


def digest_of(path, about):
    """Also of a file that its owner may not read; the look changes no time of it."""
    with readable(path, about, 0o400), open(path, "rb") as file:
        sum_ = hashlib.sha256()
        for block in iter(lambda: file.read(1 << 20), b""):
            sum_.update(block)
        return sum_.hexdigest()


def names_in(path, about):
    with readable(path, about, 0o500):
        names = sorted(os.listdir(path))
    if about.st_mode & 0o100 == 0 and os.geteuid() != 0:
        return []
    return names


class readable:
    def __init__(self, path, about, needed):
        self.path, self.mode, self.needed = path, about.st_mode & 0o7777, needed

    def __enter__(self):
        if os.geteuid() != 0 and self.mode & self.needed != self.needed:
            os.chmod(self.path, self.mode | self.needed)

    def __exit__(self, *_):
        if os.geteuid() != 0 and self.mode & self.needed != self.needed:
            os.chmod(self.path, self.mode)


def differences(old, new):
    """What a person wants to read of two pictures."""
    return ["%s: %s -> %s" % (os.fsdecode(path), old.get(path), new.get(path))
            for path in sorted(set(old) | set(new)) if old.get(path) != new.get(path)]


def put(path, content="", mode="w"):
    with open(path, mode + "b") as file:
        file.write(content.encode() if isinstance(content, str) else content)


def bytes_of(path):
    with open(path, "rb") as file:
        return file.read()


def text_of(path):
    return bytes_of(path).decode()


def make_tree(top, files):
    """Files by path; a path that ends in '/' is a directory, a value (text,) is a link."""
    for path, content in files.items():
        full = os.path.join(top, path)
        os.makedirs(full if path.endswith("/") else os.path.dirname(full), exist_ok=True)
        if isinstance(content, tuple):
            os.symlink(content[0], full)
        elif not path.endswith("/"):
            put(full, content)
    return top


def become_nobody():
    os.setgroups([])
    os.setgid(65534)
    os.setuid(65534)


class KmctlCase(unittest.TestCase):
    """A test with a scratch directory, "root" and "state" in it."""

    maxDiff = None

    def setUp(self):
        base = os.environ.get("KM_TEST_DIR")
        self.dir = tempfile.mkdtemp(prefix="kmcli.", dir=base)
        self.root = os.path.join(self.dir, "root")
        self.state = os.path.join(self.dir, "state")
        os.mkdir(self.root)
        self.addCleanup(self.drop)

    def drop(self):
        for here, names, _ in os.walk(self.dir):
            for name in names:
                full = os.path.join(here, name)
                if not os.path.islink(full):
                    os.chmod(full, 0o700)
        shutil.rmtree(self.dir)

    def path(self, *parts):
        return os.path.join(self.dir, *parts)

    def at(self, path):
        """Where an object of a package stands."""
        return self.root + path

    def command(self, *words):
        return [KMCTL, "--root", self.root, "--state", self.state, *words]

    def environment(self, traced=False):
        env = dict(os.environ)
        leaks = "0" if traced else "1"
        env["ASAN_OPTIONS"] = "allocator_may_return_null=1:detect_leaks=" + leaks
        env["UBSAN_OPTIONS"] = "print_stacktrace=1:halt_on_error=1"
        env.pop("TMPDIR", None)
        return env

    def call(self, words, traced=False, **more):
        ended = Ended(subprocess.run(
            words, stdin=subprocess.DEVNULL, capture_output=True, cwd=more.pop("cwd", self.dir),
            env=more.pop("env", None) or self.environment(traced), timeout=more.pop("timeout", 100), **more))
        self.assertNotIn("Sanitizer", ended.err, ended)
        self.assertNotIn("runtime error", ended.err, ended)
        return ended

    def faulty(self, how, *words):
        """A command under the fault layer, which is told `how`: "kill", its number, and so on."""
        return self.call([FAULTS, *map(str, how), *self.command(*words)], traced=True)

    def calls_of(self, *words):
        """How many disk-changing calls a command makes."""
        ended = self.faulty(["count"], *words)
        self.assertEqual(ended.code, 0, ended)
        return int(ended.err.split()[-1])

    def killed(self, at, *words):
        """The exit code of a command that is killed in front of a call: 137 unless it made fewer."""
        return self.faulty(["kill", at], *words).code

    def km(self, *words, code=0, **more):
        """Runs a command with the scratch root and state; `code` None takes any exit code."""
        ended = self.call(self.command(*words), **more)
        if code is not None:
            self.assertEqual(ended.code, code, (words, ended))
        return ended

    def km_json(self, *words, code=0, **more):
        """The same with --json; the one object that it prints."""
        ended = self.km("--json", *words, code=code, **more)
        told = json.loads(ended.out)
        self.assertEqual(told["schema"], 1)
        self.assertEqual(told["exit_code"], ended.code, ended)
        self.assertIn(told["outcome"], ("done", "nothing", "failed", "refused", "pending"))
        self.assertIsInstance(told["command"], str)
        for one in told["messages"]:
            self.assertEqual(set(one), {"id", "severity", "text"}, one)
            self.assertIn(one["severity"], ("info", "warning", "error"))
        return told

    def build(self, source, name="p", version="1.0", to="/opt/p", *more):
        """A package file of a tree, or of files as `make_tree` takes them; its path."""
        if isinstance(source, dict):
            source = make_tree(tempfile.mkdtemp(dir=self.dir, prefix="src"), source)
            os.chmod(source, 0o755)
        out = self.path("%s-%s.spb" % (name, version))
        self.km("build", source, "--name", name, "--version", version, "--to", to, "-o", out, *more)
        return out

    def letters(self, package):
        return self.km_json("status", package)["package"]["state"]

    def state_picture(self):
        """The state without what every call writes: the copy of the settings, counts that hold nothing
        yet, and the log of all runs."""
        left_out = (b".", b"catalog", b"znpis.bak", b"catalog/rct.tme", b"catalog/rctbak.tme",
                    b"log", b"log/kmctl.log")
        return {p: one for p, one in picture(self.state).items() if p not in left_out}

    def as_nobody(self):
        """As an ordinary user: the scratch directory is handed to one where root runs this."""
        if os.geteuid() != 0:
            return {}
        for here, names, files in os.walk(self.dir):
            for name in [".", *names, *files]:
                os.lchown(os.path.join(here, name), 65534, 65534)
        return {"preexec_fn": become_nobody}

    def read(self, path):
        return bytes_of(self.at(path))

    def leftovers(self):
        """Temporary names of objects, and profiles that no package of the list has."""
        left = [os.path.join(here, name) for here, _, names in os.walk(self.root) for name in names
                if ".km~" in name]
        named = {self.km_json("status", "%s^%s" % (one["name"], one["version"]))["profile"]
                 for one in self.km_json("list")["packages"]}
        work = os.path.join(self.state, "work")
        for name in os.listdir(work) if os.path.isdir(work) else []:
            if name.startswith("PP") and os.path.join(work, name) not in named:
                left.append(name)
        return left

    def assert_same(self, old, new, note=""):
        self.assertEqual(differences(old, new), [], note)


main = unittest.main
