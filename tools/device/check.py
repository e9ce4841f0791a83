#!/usr/bin/env python3
"""Checks what goes to a vendor tree, with the open platform's own tools and headers.

Each check prints one line, and below it what is wrong and where. Exit: 0 all hold, 1 one does not,
2 wrong usage.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as xml

PACKAGE = "vendor.lyr.modem@1.0"
PACKAGE_ROOT = "interfaces/vendor/lyr/modem"
HASHES = f"{PACKAGE_ROOT}/current.txt"
STAND_INS = "tools/device/stand-ins"
PLATFORM_HEADERS = "/usr/include/android"
GUIDE = "docs/integration.md"
LIBRARY = "libox-modem.so"
STANDARD_NAMES = {"[abi:cxx11]": "", "std::__cxx11::basic_string<char, std::char_traits<char>, "
                  "std::allocator<char> >": "std::string"}
LIBRARIES = ["lib-framework", "libcutils", "libhidlbase", "libmodemapi_vendor", "libutils", PACKAGE]


class Wrong(Exception):
    """What does not hold; the text says where."""


def run(root, *command, **options):
    """The command's output; Wrong with everything it said when it fails."""
    done = subprocess.run(command, cwd=root, capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        raise Wrong(f"{shlex.join(map(str, command))}\n{done.stdout}{done.stderr}")
    return done.stdout


def require_same(where, found, wanted):
    """Two sets of names; tells those that are in one alone."""
    differences = {"lacks": set(wanted) - set(found), "has too much": set(found) - set(wanted)}
    texts = [f"{what}: {', '.join(map(str, sorted(names)))}"
             for what, names in differences.items() if names]
    if texts:
        raise Wrong(f"{where} {'; '.join(texts)}")


def read(root, path):
    return (root / path).read_text(encoding="utf-8")


def hidl_gen(root, language, package, *more):
    return run(root, "hidl-gen", "-R", "-L", language, *more,
               "-r", f"vendor.lyr.modem:{PACKAGE_ROOT}", "-r", f"android.hidl:{STAND_INS}", package)


def interface(root):
    """The definition is valid, and the one that was released."""
    hidl_gen(root, "check", PACKAGE)
    wanted = [line for line in read(root, HASHES).splitlines() if line and line[0] != "#"]
    require_same(HASHES, wanted, hidl_gen(root, "hash", PACKAGE).split("\n")[:-1])


def module(root):
    """The build files parse; the plug-in's names each source and library, and nothing else."""
    files = ["Android.bp", f"{PACKAGE_ROOT}/Android.bp", f"{PACKAGE_ROOT}/1.0/Android.bp"]
    for file in files:
        run(root, "bpfmt", "-o", file)
    hal = {path.name for path in (root / PACKAGE_ROOT / "1.0").glob("*.hal")}
    require_same(files[2], bp_list(root, files[2], "srcs"), hal)
    require_same(f"{files[0]}: srcs", bp_list(root, files[0], "srcs"), plugin_sources(root))
    require_same(f"{files[0]}: shared_libs", bp_list(root, files[0], "shared_libs"), LIBRARIES)
    for named in ("version_script", "init_rc", "vintf_fragments"):
        for file in bp_list(root, files[0], named):
            if not (root / file).is_file():
                raise Wrong(f"{files[0]}: {named}: no file {file}")


def plugin_sources(root):
    return sorted(str(path.relative_to(root)) for path in (root / "plugin").rglob("*.cpp"))


def bp_list(root, file, name):
    """A list or text of a build file; the formatter has brought it into one shape."""
    found = re.search(rf"^    {name}: (\[[^]]*\]|\"[^\"]*\")", run(root, "bpfmt", "-o", file), re.M)
    return re.findall(r'"([^"]*)"', found.group(1)) if found else []


def sources(root):
    """The sources compile against the headers of the device's generator and of the platform."""
    with tempfile.TemporaryDirectory() as out:
        for package in (PACKAGE, "android.hidl.base@1.0", "android.hidl.manager@1.0"):
            hidl_gen(root, "c++-headers", package, "-o", out)
        includes = ["plugin", out, f"{STAND_INS}/include", "desk/libhidlbase/include",
                    "desk/lib-framework/include", "desk/libmodemapi_vendor/include"]
        command = ["clang++", "-fsyntax-only", "-std=" + bp_list(root, "Android.bp", "cpp_std")[0],
                   "-stdlib=libc++", "-fno-rtti", "-fno-exceptions", *bp_list(root, "Android.bp", "cflags"),
                   *bp_list(root, "Android.bp", "cppflags"), *(f"-I{path}" for path in includes),
                   "-isystem", PLATFORM_HEADERS]
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            list(pool.map(lambda source: run(root, *command, source),
                          bp_list(root, "Android.bp", "srcs")))


def manifest(root):
    """What is offered to the framework is what the interface and the init file tell."""
    name, version = PACKAGE.split("@")
    services = dict(re.findall(r"^service \S+ .* -i (\d)\n    interface \S+::IModem (\S+)$",
                               read(root, "device/ox-modem.rc"), re.M))
    require_same("device/ox-modem.rc: instances", services.items(),
                 [("0", "instance0"), ("1", "instance1")])
    for file in ("device/manifest.xml", "device/compatibility_matrix.xml"):
        run(root, "xmllint", "--noout", "--relaxng", "tools/device/hal-entry.rng", file)
        hal = xml.parse(root / file).find("hal")
        require_same(f"{file}: name, version", [hal.findtext("name"), hal.findtext("version")],
                     [name, version])
        require_same(f"{file}: interfaces", [e.text for e in hal.iterfind("interface/name")],
                     ["IModem"])
        require_same(f"{file}: instances", [e.text for e in hal.iterfind("interface/instance")],
                     services.values())


def sepolicy(root):
    """The policy compiles over a small base; files, properties and services have labels."""
    base = f"{STAND_INS}/sepolicy"
    rules = sorted(str(path.relative_to(root)) for path in (root / "device/sepolicy").glob("*.te"))
    with tempfile.TemporaryDirectory() as out:
        conf, cil = f"{out}/policy.conf", f"{out}/policy.cil"
        whole = run(root, "m4", "-s", f"{base}/macros.m4", f"{base}/base.conf", *rules,
                    f"{base}/end.conf")
        pathlib.Path(conf).write_text(whole, encoding="utf-8")
        run(root, "checkpolicy", "-M", "-C", "-o", cil, conf)
        run(root, "secilc", "-M", "true", "-o", f"{out}/policy", "-f", f"{out}/contexts", cil)
    declared = re.findall(r"^type (\w+)", "\n".join(read(root, rule) for rule in rules), re.M)
    contexts = {}
    for kind in ("file", "hwservice", "property"):
        lines = read(root, f"device/sepolicy/{kind}_contexts").splitlines()
        contexts[kind] = dict(re.fullmatch(r"(\S+)\s+u:object_r:(\w+):s0", line).groups()
                              for line in lines)
    labels = {label for table in contexts.values() for label in table.values()}
    if labels - set(declared):
        raise Wrong(f"device/sepolicy: no such type: {', '.join(sorted(labels - set(declared)))}")
    text = "".join(path.read_text(encoding="utf-8") for path in (root / "plugin").rglob("*.cpp"))
    text += "".join(path.read_text(encoding="utf-8") for path in (root / "plugin").rglob("*.h"))
    for path in re.findall(r'"(/(?:data|vendor)/[^"]+)"', text) + re.findall(
            r"^service \S+ (\S+)", read(root, "device/ox-modem.rc"), re.M):
        if not any(re.fullmatch(pattern, path) for pattern in contexts["file"]):
            raise Wrong(f"device/sepolicy/file_contexts: no label for {path}")
    for name in re.findall(r'"(persist\.[^"]+)"', text):
        if not any(name.startswith(prefix) for prefix in contexts["property"]):
            raise Wrong(f"device/sepolicy/property_contexts: no label for {name}")
    require_same("device/sepolicy/hwservice_contexts", contexts["hwservice"],
                 [PACKAGE.split("@", maxsplit=1)[0] + "::IModem"])


def symbols(root):
    """The guide tells what the plug-in takes from the device: headers, and functions."""
    if symbol_table(root) not in read(root, GUIDE):
        raise Wrong(f"{GUIDE}: headers and symbols are not those of the sources and {LIBRARY}; "
                    "./test.sh device --write makes them anew")


def symbol_table(root):
    """What the sources include of the device, and what the library of the plain build takes."""
    files = [path for path in (root / "plugin").rglob("*.*") if path.is_file()]
    headers = set(re.findall(r"^#include <(.*/.*\.h|modem_api\.h)>$", "\n".join(
        path.read_text(encoding="utf-8") for path in files), re.M))
    build = root / "build/dev/lib"
    dump = ["nm", "-D", "--without-symbol-versions", "--format=just-symbols"]
    wanted = set(run(root, *dump, "--undefined-only", build / LIBRARY).split())
    text = "Headers:\n\n```\n" + "".join(
        f"{header}\n" for header in sorted(headers) if not header.startswith("sys/")) + "```\n\n"
    for library in ("lib-framework", "libcutils", "libmodemapi_vendor"):
        defined = run(root, *dump, "--defined-only", build / f"{library}.so").split()
        names = run(root, "c++filt", input="\n".join(wanted & set(defined)))
        for long, short in STANDARD_NAMES.items():
            names = names.replace(long, short)
        shown = sorted(name for name in names.split("\n") if name and " for " not in name)
        text += f"`{library}.so`:\n\n```\n" + "".join(f"{name}\n" for name in shown) + "```\n\n"
    return text


def write(root):
    """Makes anew what is made: the list of sources, the hashes and the table of symbols."""
    listed = "".join(f'        "{source}",\n' for source in plugin_sources(root))
    text = re.sub(r"^    srcs: \[\n[^]]*", "    srcs: [\n" + listed + "    ", read(root, "Android.bp"),
                  flags=re.M)
    (root / "Android.bp").write_text(text, encoding="utf-8")
    comment = [line for line in read(root, HASHES).splitlines(True) if line[0] == "#"]
    (root / HASHES).unlink()
    (root / HASHES).write_text("".join(comment) + hidl_gen(root, "hash", PACKAGE), encoding="utf-8")
    head, _, rest = read(root, GUIDE).partition("<!-- symbols -->\n\n")
    _, end, tail = rest.partition("<!-- end of symbols -->")
    (root / GUIDE).write_text(f"{head}<!-- symbols -->\n\n{symbol_table(root)}{end}{tail}",
                              encoding="utf-8")


CHECKS = [sources, interface, module, manifest, sepolicy, symbols]


def check(root, function):
    started = time.monotonic()
    try:
        function(root)
        took = time.monotonic() - started
        return f"ok      {function.__name__:10} {took:4.1f} s  {function.__doc__}"
    except Wrong as wrong:
        return f"FAILED  {function.__name__}: {wrong}"


def main():
    arguments = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    arguments.add_argument("--write", action="store_true",
                           help="make the list of sources, the hashes and the table of symbols anew, "
                                "then check")
    options = arguments.parse_args()
    root = pathlib.Path(__file__).resolve().parents[2]
    if options.write:
        write(root)
    failed = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for line in pool.map(lambda function: check(root, function), CHECKS):
            print(line, flush=True)
            failed = failed or line.startswith("FAILED")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
