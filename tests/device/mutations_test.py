"""Each check of what goes to a vendor tree fails on a fault planted in a copy of it."""

import importlib
import pathlib
import shutil
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools/device"))
check = importlib.import_module("check")

HAL = "interfaces/vendor/lyr/modem/1.0/IModem.hal"
HIDL = "plugin/proxies/HidlConversions.cpp"
MATRIX = "device/compatibility_matrix.xml"
POLICY = "device/sepolicy/"
FILES = POLICY + "file_contexts"
TE = POLICY + "vendor_ox_modem.te"

# The check, the file, a text in it, what stands there instead, what the check has to say.
FAULTS = [
    ("interface", HAL, "Time(int32_t serial)", "Time(int32_t)", "missing a variable name"),
    ("interface", HAL, "oneway getBuildTime(", "oneway getTime(", "1.0::IModem has hash"),
    ("module", "Android.bp", "srcs: [", 'srcs: ["a.cpp" "b.cpp",', 'expected "]"'),
    ("module", "Android.bp", '"plugin/clients/QmiClient.cpp",', "", "srcs lacks: clients/QmiClient.cpp"),
    ("module", "Android.bp", "/OnLoad.cpp", "/Gone.cpp", "has too much: plugin/Gone.cpp"),
    ("module", "Android.bp", '"libutils",', "", "shared_libs lacks: libutils"),
    ("module", "Android.bp", "exports.map", "export.map", "no file plugin/export.map"),
    ("sources", HIDL, "MbnInfo toHidl(", "static int a;\nMbnInfo toHidl(", "unused variable"),
    ("sources", HIDL, "return views;", "views.gone();\n    return views;", "no member"),
    ("manifest", "device/manifest.xml", ">hwbinder<", ">socket<", "fails to validate"),
    ("manifest", MATRIX, "instance1", "instance2", "lacks: instance1"),
    ("manifest", "device/ox-modem.rc", "-i 1", "-i 0", "device/ox-modem.rc: instances"),
    ("sepolicy", TE, "set_prop(", "put_prop(", "syntax error"),
    ("sepolicy", POLICY + "hwservice.te", ", hwservice_manager_type", ", gone", "is not declared"),
    ("sepolicy", FILES, "config_file", "file", "no such type: vendor_modem_file"),
    ("sepolicy", FILES, "modem_config(", "config(", "no label for /data/vendor/"),
    ("sepolicy", POLICY + "property_contexts", "atlog.", "log.", "no label for persist.service"),
    ("symbols", check.GUIDE, "property_get\n", "property_read\n", "headers and symbols"),
]


class MutationsTest(unittest.TestCase):
    def test_every_planted_fault_is_seen(self):
        with tempfile.TemporaryDirectory() as folder:
            copy = pathlib.Path(folder)
            shutil.copy(ROOT / "Android.bp", copy)
            for path in ["build/dev/lib", "device", "docs", "interfaces", "desk",
                         "tools/device", *check.SOURCE_FOLDERS]:
                shutil.copytree(ROOT / path, copy / path)
            check.sources = lambda root, whole=check.sources: whole(root, [HIDL])
            for name, file, old, new, told in FAULTS:
                with self.subTest(check=name, fault=new):
                    text = (copy / file).read_text(encoding="utf-8")
                    self.assertIn(old, text)
                    getattr(check, name)(copy)  # holds before
                    (copy / file).write_text(text.replace(old, new, 1), encoding="utf-8")
                    try:
                        getattr(check, name)(copy)
                        self.fail("not seen")
                    except check.Wrong as wrong:
                        self.assertIn(told, str(wrong))
                    finally:
                        (copy / file).write_text(text, encoding="utf-8")


if __name__ == "__main__":
    unittest.main()
