"""The crash matrix: an operation is cut or disturbed at each disk-changing call that it makes; then
the next command must lead to the old or to the new state, whole, with nothing left over.

What is compared: the target tree (content, mode, owner, group, time, link target, number of names),
the packages with their letters, and the names of all files that the engine keeps. A state between
is bad, and so is a check that complains.

Cuts of the power are replayed: between any two calls the disk is looked at, so that a disk can be
built that holds only what was flushed."""
import collections
import errno
import json
import os
import re
import shutil
import stat
import subprocess
import tempfile

import support
from support import FAULTS, KMCTL

NOW = 1_700_000_000 * 10**9  # behind all times of packages
ERRORS = (errno.ENOSPC, errno.EIO, errno.EACCES)

Point = collections.namedtuple("Point", "way at recovery")  # at: number of the call, from 1


class Bad(Exception):
    """A point that ended badly; its text tells how."""


def make_tree(top, files):
    """As support's, each name with a time of its own."""
    support.make_tree(top, files)
    for here, names, others in os.walk(top, topdown=False):
        for number, name in enumerate(sorted(names + others)):
            when = 1600000000 + 1000 * len(here) + number
            os.utime(os.path.join(here, name), (when, when), follow_symlinks=False)
    return top


def look(path, relative, into, made):
    about = os.lstat(path)
    kind = stat.S_IFMT(about.st_mode)
    one = [oct(about.st_mode), about.st_uid, about.st_gid]
    if kind == stat.S_IFDIR:
        if relative in made:  # a change behind the package's own time is told apart, not its hour
            one.append(min(about.st_mtime_ns, NOW))
        for name in os.listdir(path):
            look(os.path.join(path, name), os.path.join(relative, name), into, made)
    else:
        one += [about.st_nlink, about.st_mtime_ns]
        if kind == stat.S_IFLNK:
            one.append(os.readlink(path))
        else:
            one.append(support.bytes_of(path))
    into[relative] = tuple(one)


def shape(name):
    """A name of the engine's files without what differs from run to run."""
    return re.sub(r"\b(PP|UP)[^/]*", r"\1*", name)


class Box:
    """A scratch directory with root and state, and a copy of both to begin again from."""

    made = ("opt/in/p/n", "opt/in/p/n/m", "opt/in/p/e")
    # Enough in one directory that some are written ahead.
    first = {"a": "first\n", "b": "second\n" * 900, "e/": None, "l": ("a",), "lib/c": "common\n",
             "n/m/x": "deep\n", **{"w%d" % i: "one\n" * i for i in range(1, 6)}}
    second = {"a": "first, better\n", "b": "second\n" * 900, "e/": None, "k": "new\n", "l": ("b",),
              "lib/c": "common\n", **{"w%d" % i: "another\n" * (i + i % 2) for i in range(1, 6)}}

    def __init__(self):
        self.dir = tempfile.mkdtemp(prefix="kmmatrix.", dir=os.environ.get("KM_TEST_DIR"))
        self.root = os.path.join(self.dir, "root")
        self.state = os.path.join(self.dir, "state")
        self.saved = os.path.join(self.dir, "saved")
        self.env = {k: v for k, v in os.environ.items() if k != "TMPDIR"}
        self.env["ASAN_OPTIONS"] = "allocator_may_return_null=1:detect_leaks=0"
        self.env["UBSAN_OPTIONS"] = "print_stacktrace=1:halt_on_error=1"
        make_tree(self.root, {"opt/in/p/a": "a user's own\n", "opt/in/p/beside": "not ours\n"})
        os.chmod(os.path.join(self.root, "opt/in/p/a"), 0o640)
        self.one = self.build(self.first, "p", "1.0")
        self.two = self.build(self.second, "p", "2.0")
        self.km("install", self.build({"lib/c": "common\n", "q": "neighbour\n"}, "q", "1.0"))

    def drop(self):
        shutil.rmtree(self.dir)

    def build(self, files, name, version):
        source = make_tree(os.path.join(self.dir, "src-%s-%s" % (name, version)), files)
        out = os.path.join(self.dir, "%s-%s.spb" % (name, version))
        self.km("build", source, "--name", name, "--version", version, "--to", "/opt/in/p", "-o",
                out, "--shared", "lib/*")
        return out

    def words(self, *words):
        return [KMCTL, "--root", self.root, "--state", self.state, *words]

    def call(self, words, **more):
        ended = support.Ended(subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True,
                                             cwd=self.dir, env=self.env, timeout=100, **more))
        if "Sanitizer" in ended.err or "runtime error" in ended.err:
            raise Bad(ended.err)
        return ended

    def km(self, *words, code=0):
        ended = self.call(self.words(*words))
        if code is not None and ended.code != code:
            raise Bad("%s ended with %d: %s" % (" ".join(words), ended.code, ended.err))
        return ended

    def faulty(self, how, *words):
        return self.call([FAULTS, *how, *self.words(*words)])

    # What stands.

    def tree(self):
        found = {}
        look(self.root, "", found, self.made)
        return found

    def kept(self):
        """Names of what the engine keeps, sorted, without logs and copies that come and go."""
        names = []
        for here, _, files in os.walk(self.state):
            for name in files:
                names.append(shape(os.path.relpath(os.path.join(here, name), self.state)))
        # Lists of paths are made again from the profile; of a package that is gone none may be left.
        listed = {"work/paths/%s^%s" % one[:2] for one in self.packages()}
        names = [name for name in names if name not in listed]
        passing = re.compile(r"(^|/)(log|trace)/|\.log$|lock|\.bak$|rctbak|\.lck$|rct\.tme$"
                             r"|work/made/[^~]*$|packages\.pht\.sem$")
        return sorted(name for name in names if not passing.search(name)) + self.made_notes()

    def made_notes(self):
        """Which directories are noted as made. Their order, empty notes, and whether the package
        that stands or one before it noted them: whoever takes the last thing out of them removes
        them."""
        told = set()
        top = os.path.join(self.state, "work", "made")
        for name in os.listdir(top) if os.path.isdir(top) else []:
            notes = support.bytes_of(os.path.join(top, name)).decode("utf-8", "replace").split("\0")[:-1]
            told |= {"made: " + note for note in notes if note}
        return sorted(told)

    def packages(self):
        told = json.loads(self.km("--json", "list").out)
        return sorted((one["name"], one["version"], one["state"]) for one in told["packages"])

    def whole(self):
        return self.tree(), self.packages(), self.kept()

    # Beginning again.

    def save(self):
        shutil.rmtree(self.saved, ignore_errors=True)
        os.mkdir(self.saved)
        subprocess.run(["cp", "-a", self.root, self.state, self.saved], check=True)

    def restore(self):
        shutil.rmtree(self.root, ignore_errors=True)
        shutil.rmtree(self.state, ignore_errors=True)
        subprocess.run(["cp", "-a", os.path.join(self.saved, "root"),
                        os.path.join(self.saved, "state"), self.dir], check=True)


# The operations: what comes before, and the command itself.

def damage(box):
    box.km("install", box.one)
    support.put(os.path.join(box.root, "opt/in/p/b"), "damaged\n", "a")
    os.unlink(os.path.join(box.root, "opt/in/p/l"))
    os.chmod(os.path.join(box.root, "opt/in/p/n/m/x"), 0o600)


def before(*commands):
    def run(box):
        for words in commands:
            box.km(*[word.format(one=box.one, two=box.two) for word in words])
    return run


def delta(box):
    box.km("install", box.one)
    box.km("delta", box.one, box.two, "-o", os.path.join(box.dir, "delta.spb"))


def without_counts(box):
    """As on a machine that never had a package with shared files."""
    box.km("remove", "q")
    os.unlink(os.path.join(box.state, "catalog", "rct.tme"))


OPERATIONS = {
    "first counts": (without_counts, ["install", "{one}"]),
    "install": (before(), ["install", "{one}"]),
    "undoable install": (before(), ["install", "--undoable", "{one}"]),
    "prepare": (before(), ["install", "--transactional", "--undoable", "{one}"]),
    "commit": (before(["install", "--transactional", "--undoable", "{one}"]), ["commit", "p"]),
    "whole chain": (before(), ["install", "--transactional", "--undoable", "--auto-commit",
                               "--auto-accept", "{one}"]),
    "undo": (before(["install", "--undoable", "{one}"]), ["undo", "p"]),
    "accept": (before(["install", "--undoable", "{one}"]), ["accept", "p"]),
    "rollback": (before(["install", "--transactional", "--undoable", "{one}"]), ["rollback", "p"]),
    "remove": (before(["install", "{one}"]), ["remove", "p"]),
    "undoable remove": (before(["install", "{one}"]), ["remove", "--undoable", "p"]),
    "undo of remove": (before(["install", "{one}"], ["remove", "--undoable", "p"]), ["undo", "p"]),
    "verify": (damage, ["verify", "p"]),
    "repair": (damage, ["repair", "p", "--from", "{one}"]),
    "upgrade": (before(["install", "{one}"]), ["upgrade", "{two}"]),
    "undo of upgrade": (before(["install", "{one}"], ["upgrade", "{two}"]), ["undo", "p"]),
    "delta install": (delta, ["upgrade", "{delta}"]),
}


class Matrix:
    """One operation in one scratch directory."""

    def __init__(self, name):
        self.name = name
        self.box = box = Box()
        self.origin = box.whole()
        prepare, words = OPERATIONS[name]
        prepare(box)
        box.save()
        self.command = [word.format(one=box.one, two=box.two,
                                    delta=os.path.join(box.dir, "delta.spb")) for word in words]
        box.restore()
        self.old = box.whole()
        good = (0, 100) if name == "verify" else (0,)
        ended = box.faulty(["count"], *self.command)
        if ended.code not in good:
            raise Bad("%s: %s" % (name, ended))
        self.calls = int(ended.err.split()[-1])
        self.new = box.whole()
        box.km("check")
        self.films = None

    def drop(self):
        self.box.drop()

    def points(self, ways, stride=1, start=0):
        """All points of the wanted ways."""
        for way in ways:
            cut = way == "kill" or way.startswith("power")
            last = self.calls + (way.startswith("power"))
            for at in range(1 + start % stride, last + 1, stride):
                recoveries = ["resume", "again"] if cut else ["again"]
                if cut and self.name in ("undoable install", "upgrade"):
                    recoveries.append("back")
                for recovery in recoveries:
                    yield Point(way, at, recovery)

    def try_point(self, point):
        """"old" or "new": where the point ended. Raises Bad."""
        box = self.box
        if point.way.startswith("power"):
            ended = self.cut_power(point)
        else:
            box.restore()
            how = ["kill", str(point.at)]
            if point.way != "kill":
                kind, error = point.way.split()
                how = [kind, str(point.at), str(getattr(errno, error))]
            ended = box.faulty(how, *self.command)
            # A second processor takes a few calls more or less for a file that it writes ahead.
            if point.way == "kill" and ended.code == 0 and point.at > self.calls - 5 * len(
                    Box.second) and int(ended.err.split()[-1]) < point.at:
                return self.judge([], only_new=True)
            if point.way == "kill" and ended.code != 137:
                raise Bad("was not killed: %s" % (ended,))
        told = [str(ended)] if point.way != "kill" else []
        box.km("list")  # reading works at once
        if point.way.split()[0] in ("once", "fail") and ended.code not in (0, 100):
            if "error: " not in ended.err:
                raise Bad("fails without a word: %s" % (ended,))
            if box.packages() == self.new[1] != self.old[1] and box.tree() != self.new[0]:
                raise Bad("the catalog says that it is done: %s" % (ended,))
        if point.way != "kill" and not point.way.startswith("power") and ended.code in (0, 100):
            self.recover("resume", told)  # a last step that failed is made up for
            return self.judge(told, only_new=True)
        self.recover(point.recovery, told)
        # What was told to be done is done, also when the power goes a moment later.
        after_all = point.way.startswith("power") and point.at > len(self.films.calls)
        return self.judge(told, only_new=after_all and point.recovery != "back")

    def recover(self, how, told):
        box = self.box
        if how == "again":
            ended = box.km(*self.command, code=None)
            told.append(str(ended))
            if ended.code == 5 and "--force" in ended.err:
                ended = box.km(*self.command, "--force", code=None)
                told.append(str(ended))
            # 3 and 5: the cut fell behind the last change, and nothing is left to do.
            if ended.code not in (0, 3, 5, 100):
                raise Bad("\n".join(told))
            return
        words = ["resume"] if how == "resume" else ["resume", "--back"]
        ended = box.km(*words, code=None)
        told.append(str(ended))
        if ended.code not in (0, 100):
            raise Bad("\n".join(told))

    def judge(self, told, only_new=False):
        ended = self.box.km("check", code=None)
        now = self.box.whole()
        if ended.code:
            raise Bad("check complains: %s\n%s" % (ended.err, "\n".join(told)))
        if now == self.new:
            return "new"
        if now == self.old and not only_new:
            return "old"
        # A commit that fails takes everything back, the prepare, too.
        if self.name == "commit" and now == self.origin and not only_new:
            return "old"
        raise Bad("neither old nor new%s\nagainst old: %s\nagainst new: %s\n%s" % (
            ", though it said success" if only_new else "", difference(self.old, now),
            difference(self.new, now), "\n".join(told)))

    # Power cuts.

    def cut_power(self, point):
        if self.films is None:
            self.films = Film(self)
        # The film may have a few calls more or less than the run that was counted.
        self.films.show(min(point.at, len(self.films.moments)), point.way.split(None, 1)[1])
        return self.films.ended


def difference(want, now):
    lines = ["%.200s" % line for line in support.differences(want[0], now[0])]
    if want[1] != now[1]:
        lines.append("packages: %s -> %s" % (want[1], now[1]))
    gone = collections.Counter(want[2]) - collections.Counter(now[2])
    more = collections.Counter(now[2]) - collections.Counter(want[2])
    if gone or more:
        lines.append("kept files: missing %s, more %s" % (sorted(gone), sorted(more)))
    return "; ".join(lines) or "same"


# A file or directory of one moment: `entries` by name for a directory, else `content`.
Node = collections.namedtuple("Node", "about entries content")


class Film:
    """Every moment between two calls of one run, and from it the disks that a power cut may leave.

    A file is known by its inode; one that was out of every directory for a moment is another.
    What the first moment holds is flushed. Root and state are held for two file systems, so that
    the flush of one says nothing of the other."""

    POLICIES = ("nothing", "names", "names of root", "names of state")

    def __init__(self, matrix):
        self.box = matrix.box
        self.box.restore()
        self.moments, self.calls = [], []
        self.lives, self.count = {}, 0
        tell, told = os.pipe(), os.pipe()
        process = subprocess.Popen(
            [FAULTS, "step", str(tell[1]), str(told[0]), *self.box.words(*matrix.command)],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            cwd=self.box.dir, env=self.box.env, pass_fds=(tell[1], told[0]))
        os.close(tell[1])
        os.close(told[0])
        with os.fdopen(tell[0]) as lines:
            for line in lines:
                _, name, _, inode = line.split()
                self.look()
                self.calls.append((name, self.lives.get(int(inode))))
                os.write(told[1], b"g")
        os.close(told[1])
        self.ended = process.communicate()[0].decode("utf-8", "replace")
        self.look()

    def look(self):
        """One more moment: all nodes by life."""
        moment, lives = {}, {}

        def visit(path):
            about = os.lstat(path)
            life = self.lives.get(about.st_ino)
            if about.st_ino in lives:
                return lives[about.st_ino]
            if life is None:
                self.count += 1
                life = self.count
            lives[about.st_ino] = life
            entries = content = None
            if stat.S_ISDIR(about.st_mode):
                entries = {name: visit(os.path.join(path, name)) for name in os.listdir(path)}
            elif stat.S_ISLNK(about.st_mode):
                content = os.readlink(path)
            else:
                content = support.bytes_of(path)
            moment[life] = Node(about, entries, content)
            return life

        roots = [visit(self.box.root), visit(self.box.state)]
        self.lives = lives
        self.moments.append((moment, roots))

    def below(self, moment, life, into):
        into.add(life)
        for child in (moment[life].entries or {}).values():
            self.below(moment, child, into)
        return into

    def flushed(self, at):
        """Nodes as they were when they were last flushed before call `at`."""
        first, roots = self.moments[0]
        kept = dict(first)
        for number in range(at - 1):
            name, life = self.calls[number]
            moment = self.moments[number][0]
            if name in ("fsync", "fdatasync") and life in moment:
                kept[life] = moment[life]
            elif name == "syncfs" and life in moment:
                for root in roots:
                    covered = self.below(moment, root, set())
                    if life in covered:
                        kept.update({one: moment[one] for one in covered})
        return kept

    def show(self, at, policy):
        """Builds the disk of a cut before call `at` (one behind the last: after the run)."""
        moment, roots = self.moments[at - 1]
        kept = self.flushed(at)
        sides = {"nothing": (), "names": (0, 1), "names of root": (0,), "names of state": (1,)}
        for side, (root, top) in enumerate(zip(roots, (self.box.root, self.box.state))):
            shutil.rmtree(top, ignore_errors=True)
            self.put(top, root, side in sides[policy], moment, kept, {})

    def put(self, path, life, names_last, moment, kept, done):
        """Names and attributes of this moment or of the last flush; data always of the flush."""
        now, old = moment.get(life), kept.get(life)
        about = (now or old or self.any(life)) if names_last else (old or now or self.any(life))
        if life in done:
            os.link(done[life], path, follow_symlinks=False)
            return
        if about.entries is not None:
            os.mkdir(path)
            node = (now if names_last else old)
            for name, child in (node.entries if node else {}).items():
                self.put(os.path.join(path, name), child, names_last, moment, kept, done)
        elif stat.S_ISLNK(about.about.st_mode):
            os.symlink(about.content, path)
            done[life] = path
        else:
            support.put(path, old.content if old else b"")
            done[life] = path
        os.chown(path, about.about.st_uid, about.about.st_gid, follow_symlinks=False)
        if not stat.S_ISLNK(about.about.st_mode):
            os.chmod(path, stat.S_IMODE(about.about.st_mode))
        os.utime(path, ns=(about.about.st_mtime_ns,) * 2, follow_symlinks=False)

    def any(self, life):
        for moment, _ in self.moments:
            if life in moment:
                return moment[life]
        raise KeyError(life)


WAYS = (["kill"] + ["%s %s" % (how, errno.errorcode[error]) for error in ERRORS
                    for how in ("once", "fail")] + ["power " + policy for policy in Film.POLICIES])
