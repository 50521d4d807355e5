"""kmctl speaks the language that the locale asks for, where there is a catalogue of it."""
import os
import re
import subprocess
import unittest

import support
from support import KmctlCase, put

ENGLISH = "The container 'Servers' is skipped because the condition '1 == 2' is false."
GERMAN = "Der Container 'Servers' wird übergangen, weil die Bedingung '1 == 2' nicht erfüllt ist."
JAPANESE = "条件 '1 == 2' が満たされないため、コンテナー 'Servers' は省略されます。"

DEFINITION = """kmspd 1.0 package { name = p version = 1.0 generic_container {
    caption = Servers condition = '1 == 2' add_directory { path = /opt/p } } }"""

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def shape(text):
    """What a translation must keep: severity, conversions, and the line feeds at the end."""
    severity = text[:2] if text[:2] in ("E ", "W ", "I ") else ""
    return severity, sorted(re.findall(r"%\d+\$l?.", text)), re.search(r"[ \\n]*$", text).group().strip()


class Translations(KmctlCase):
    def told(self, **around):
        env = {k: v for k, v in self.environment().items()
               if k not in ("NLSPATH", "LANG", "LC_ALL", "LC_MESSAGES")}
        env.update(around)
        told = self.km_json("install", self.package, "--force", env=env)
        return next(one for one in told["messages"] if one["id"] == "ZNPSE0788")

    def setUp(self):
        super().setUp()
        definition = self.path("p.spd")
        put(definition, DEFINITION)
        self.package = self.path("p.spb")
        self.km("build", definition, "-o", self.package)

    def test_the_catalogues_of_the_installation(self):
        for variable, language, text in (
                ("LC_ALL", "de_DE.UTF-8", GERMAN), ("LC_ALL", "de", GERMAN),
                ("LC_MESSAGES", "ja_JP.UTF-8", JAPANESE), ("LANG", "ja_JP.utf8", JAPANESE),
                ("LC_ALL", "fr_FR.UTF-8", ENGLISH), ("LC_ALL", "C", ENGLISH)):
            told = self.told(**{variable: language})
            self.assertEqual((told["severity"], told["text"]), ("info", text), language)

    def test_nlspath_wins_and_what_is_no_catalogue_is_passed_over(self):
        put(self.path("own.msg"), '$ codeset=UTF-8\n$set 2\n788 I Own words: %1$s\n')
        subprocess.run(["gencat", self.path("spcatalog-de.cat"), self.path("own.msg")], check=True)
        put(self.path("bad"), os.urandom(500))
        where = self.path("none") + ":" + self.path("bad") + ":" + self.path("%N-%l.cat")
        told = self.told(LC_ALL="de_DE.UTF-8", NLSPATH=where)
        self.assertEqual(told["text"], "Own words: 1 == 2")
        self.assertEqual(self.told(LC_ALL="ja_JP.UTF-8", NLSPATH=where)["text"], ENGLISH)

    def test_every_translation_has_severity_and_positions_of_its_original(self):
        originals = {}
        for part in ("low", "high"):
            path = os.path.join(TOP, "src", "services", "base", "spcatalog_%s.h" % part)
            with open(path) as file:
                for key, text in re.findall(r'\{(\d+),\s+((?:"(?:\\.|[^"])*"\s*)+)\}', file.read()):
                    originals[key] = "".join(re.findall(r'"((?:\\.|[^"])*)"', text))
        self.assertEqual(len(originals), 646)
        for language in ("de", "ja"):
            with open(os.path.join(TOP, "src", "nls", language, "spcatalog.msg")) as file:
                translated = re.findall(r'^(\d+) "(.*)"$', file.read().split("$set 2")[1], re.M)
            self.assertGreater(len(translated), 20)
            for key, text in translated:
                self.assertEqual(shape(originals[key]), shape(text), (language, key))


if __name__ == "__main__":
    support.main()
