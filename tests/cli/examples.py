"""The definitions of examples/: each is built, installed, verified, undone and removed."""
import os
import pathlib
import shutil

import support
from support import KmctlCase, differences, picture, put

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"


class Examples(KmctlCase):
    def made(self, example, *words):
        output = self.path(pathlib.Path(example).stem + str(len(words)) + ".spb")
        self.km("build", str(EXAMPLES / example), "-o", output, *words)
        return output

    def live_through(self, package, name, *definitions):
        """Installed, verified and undone; installed again, and left so."""
        before = picture(self.root, times=False)
        defined = [word for one in definitions for word in ("-D", one)]
        self.km("install", package, "--undoable", *defined)
        self.km("verify", name)
        installed = picture(self.root, times=False)
        self.km("undo", name)
        self.assertEqual(differences(before, picture(self.root, times=False)), [])
        self.km("install", package, *defined)
        self.km("verify", name)
        self.assertEqual(differences(installed, picture(self.root, times=False)), [])

    def test_every_example_is_one_of_these_tests(self):
        found = sorted(str(one.relative_to(EXAMPLES)) for one in EXAMPLES.rglob("*.spd"))
        self.assertEqual(found, ["conditional/conditional.spd", "restart/restart.spd",
                                 "service/service.spd", "shared-library/editor.spd",
                                 "shared-library/viewer.spd"])

    def test_export_and_build_again(self):
        for example in sorted(EXAMPLES.rglob("*.spd")):
            with self.subTest(example=example.name):
                package = self.path(example.stem + ".spb")
                text, data = self.path(example.stem + ".spd"), self.path(example.stem + ".data")
                again = self.path(example.stem + "-again.spb")
                self.km("build", str(example), "-o", package)
                self.km("export", package, "-o", text, "--files", data)
                self.km("build", text, "-o", again)
                shown = [self.km("show", part, one).out
                         for part in ("--files", "--tree") for one in (package, again)]
                self.assertEqual(shown[0], shown[1])
                self.assertEqual(shown[2], shown[3])

    def test_service(self):
        first = self.made("service/service.spd")
        self.live_through(first, "clockd", "start_service=no")
        put(self.at("/etc/clockd.conf"), "INTERVAL=5\n", "a")
        self.km("verify", "clockd")  # a change by a person is no difference
        mine = self.read("/etc/clockd.conf")
        newer = self.path("newer")
        shutil.copytree(EXAMPLES / "service", newer)
        put(os.path.join(newer, "files", "clockd.conf"), "ZONE=UTC\n", "a")
        update = self.path("update.spb")
        self.km("build", os.path.join(newer, "service.spd"), "-o", update, "--set", "version=1.1")
        told = self.km("upgrade", update, "-D", "start_service=no")
        self.assertIn("clockd.conf.kmnew", told.err + told.out)
        self.assertEqual(self.read("/etc/clockd.conf"), mine)
        self.assertIn(b"ZONE=UTC", self.read("/etc/clockd.conf.kmnew"))
        self.km("accept", "clockd")
        self.km("remove", "clockd")
        self.assertEqual(self.read("/etc/clockd.conf"), mine)
        self.assertFalse(os.path.exists(self.at("/etc/clockd.conf.kmnew")))
        self.assertFalse(os.path.exists(self.at("/usr/lib/clockd")))

    def test_the_service_that_cannot_start_is_told(self):
        package = self.made("service/service.spd")
        ended = self.km("install", package, code=1)
        self.assertIn("/bin/systemctl", ended.err)

    def test_conditional(self):
        package = self.made("conditional/conditional.spd")
        self.live_through(package, "tuning", "role=database")
        there = sorted(os.listdir(self.at("/etc/sysctl.d")))
        self.assertEqual(there, ["50-tuning.conf", "60-database.conf"])
        self.km("remove", "tuning")
        self.assertEqual(os.listdir(self.root), [])
        told = self.km("install", package)
        self.assertIn("settings of database servers", told.err + told.out)
        self.assertIn("60-workstation.conf", os.listdir(self.at("/etc/sysctl.d")))
        self.km("remove", "tuning")

    def test_shared_library(self):
        self.live_through(self.made("shared-library/editor.spd"), "editor")
        self.live_through(self.made("shared-library/viewer.spd"), "viewer")
        self.km("remove", "editor")
        self.assertTrue(os.path.exists(self.at("/opt/suite/libsuite.sh")))
        self.km("verify", "viewer")
        self.km("remove", "viewer")
        self.assertEqual(os.listdir(self.root), [])

    def test_restart(self):
        package = self.made("restart/restart.spd")
        self.live_through(package, "bootline", "reboot=no")
        self.km("remove", "bootline")
        self.assertEqual(os.listdir(self.root), [])
        self.km("install", package, "--reboot-exit-code", code=4)
        self.assertTrue(os.path.exists(self.at("/etc/default/grub.d/50-bootline.cfg")))
        # Until the machine was booted again nothing else is done with it.
        self.assertIn("reboot", self.km("remove", "bootline", code=5).err)


if __name__ == "__main__":
    support.main()
