"""What the generator does not understand stops it with file, line and reason."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

# Of types.hal and IThing.hal what follows the package line, and the message.
MISTAKES = [
    ("", "interface IThing {\n    oneway a(int32_t x, float y);\n};",
     "IThing.hal:3: unknown type 'float'"),
    ("", "interface IThing {\n    oneway a()\n\n    oneway b();\n};",
     "IThing.hal:3: expected ; before 'oneway'"),
    ("", "interface IThing {\n    oneway a();\n    a(int8_t x);\n};",
     "IThing.hal:4: method 'a' stands twice"),
    ("", "interface IThing {\n    /**\n     * Does.\n     * @param y gone\n     */\n"
         "    oneway a(int8_t x);\n};", "IThing.hal:7: comment on 'y', which is no argument"),
    ("struct A { int8_t[0] x; };", "interface IThing {};",
     "types.hal:2: array without elements"),
]


class GeneratorTest(unittest.TestCase):
    def test_stops_with_file_line_and_reason(self):
        for *texts, message in MISTAKES:
            with self.subTest(message), tempfile.TemporaryDirectory() as folder:
                files = [pathlib.Path(folder, name) for name in ("types.hal", "IThing.hal")]
                for file, text in zip(files, texts):
                    file.write_text(f"package a.b@1.0;\n{text}\n")
                out = os.path.join(folder, "out")
                run = subprocess.run([sys.executable, os.environ["HIDL_GEN"], out, *files],
                                     capture_output=True, text=True)
                self.assertEqual((run.returncode, run.stderr), (1, f"{folder}/{message}\n"))
                self.assertFalse(os.path.exists(out), "half a package was written")


if __name__ == "__main__":
    unittest.main()
