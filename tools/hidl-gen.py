#!/usr/bin/env python3
"""Writes the C++ of a HIDL package: interfaces, client proxies, server stubs and a table of them.

Reads as much of HIDL as the package needs: one interface per file, structs in types.hal, oneway
methods and methods that return nothing. Anything else ends it with "file:line: reason" on stderr.
"""

import argparse
import collections
import pathlib
import re
import sys

INTEGERS = ["int8_t", "uint8_t", "int16_t", "uint16_t", "int32_t", "uint32_t", "int64_t", "uint64_t"]
KEYWORDS = {"package", "import", "interface", "struct", "oneway", "generates", "extends", "vec",
            "string", "enum", "union", "typedef", *INTEGERS}
TOKEN = re.compile(r"\s+|//[^\n]*|(?P<doc>/\*\*.*?\*/)|/\*.*?\*/|(?P<open>/\*)"
                   r"|(?P<word>[A-Za-z_]\w*)|(?P<number>\d+)|(?P<mark>[@.;{}()<>\[\],])", re.S)

Token = collections.namedtuple("Token", "kind text line doc")
Type = collections.namedtuple("Type", "kind name element count", defaults=[None, 0])
Field = collections.namedtuple("Field", "type name doc")
Struct = collections.namedtuple("Struct", "name fields doc")
Method = collections.namedtuple("Method", "name oneway args doc")
Interface = collections.namedtuple("Interface", "name imports methods doc")


class Error(Exception):
    pass


def tokens_of(path):
    """Tokens, each with the doc comment in front of it."""
    text = path.read_text(encoding="utf-8")
    at, doc = 0, ""
    while at < len(text):
        line = text.count("\n", 0, at) + 1
        found = TOKEN.match(text, at)
        if not found:
            raise Error(f"{path}:{line}: unexpected character {text[at]!r}")
        if found.lastgroup == "open":
            raise Error(f"{path}:{line}: comment without end")
        if found.lastgroup == "doc":
            doc = found.group()
        elif found.lastgroup:
            yield Token(found.lastgroup, found.group(), line, doc)
            doc = ""
        at = found.end()
    yield Token("end", "end of file", text.count("\n") + 1, "")


def lines_of(comment):
    """Text lines of a doc comment, without its frame."""
    lines = [re.sub(r"^\s*\* ?", "", line).rstrip() for line in comment[3:-2].split("\n")]
    return "\n".join(lines).strip().split("\n")


class Parser:
    """One file. `structs` and `interfaces` are the names that its types may have."""

    def __init__(self, path, structs, interfaces):
        self.path, self.structs, self.interfaces = path, structs, interfaces
        self.tokens = list(tokens_of(path))
        self.at = 0
        self.line = 1  # of the token taken last
        self.imports = []

    def fail(self, reason, line=None):
        raise Error(f"{self.path}:{line or self.line}: {reason}")

    def peek(self):
        return self.tokens[self.at]

    def take(self, expected=None, kind=None):
        token = self.peek()
        if (expected and token.text != expected) or (kind and token.kind != kind):
            self.fail(f"expected {expected or kind} before '{token.text}'")
        self.at += 1
        self.line = token.line
        return token.text

    def accept(self, text):
        if self.peek().text == text:
            return self.take()
        return None

    def name(self, taken, what):
        name = self.take(kind="word")
        if name in KEYWORDS:
            self.fail(f"'{name}' cannot be a name")
        if name in taken:
            self.fail(f"{what} '{name}' stands twice")
        return name

    def package(self):
        self.take("package")
        path = [self.take(kind="word")]
        while self.accept("."):
            path.append(self.take(kind="word"))
        self.take("@")
        version = self.take(kind="number") + self.take(".") + self.take(kind="number")
        self.take(";")
        return tuple(path), version

    def type(self, argument=False):
        word = self.take(kind="word")
        if word in INTEGERS:
            result = Type(word[:-2].upper(), word)
        elif word == "string":
            result = Type("STRING", word)
        elif word == "vec":
            self.take("<")
            element = self.type()
            self.take(">")
            result = Type("VEC", f"vec<{element.name}>", element)
        elif word in self.structs:
            result = Type("STRUCT", word)
        elif word in self.interfaces and argument:
            if word not in self.imports:
                self.fail(f"'{word}' is not imported")
            return Type("INTERFACE", word)
        else:
            self.fail(f"unknown type '{word}'" if word not in self.interfaces
                      else f"interface '{word}' can only be an argument")
        if self.accept("["):
            count = int(self.take(kind="number"))
            self.take("]")
            if count == 0:
                self.fail("array without elements")
            result = Type("ARRAY", f"{result.name}[{count}]", result, count)
        return result

    def struct(self):
        doc = self.peek().doc
        self.take("struct")
        name = self.name([*self.structs, *self.interfaces], "type")
        self.take("{")
        fields = {}
        while not self.accept("}"):
            field_doc = self.peek().doc
            field_type = self.type()
            field = self.name(fields, "member")
            self.take(";")
            fields[field] = Field(field_type, field, "\n".join(lines_of(field_doc)))
        self.take(";")
        self.structs[name] = Struct(name, list(fields.values()), doc)

    def method(self, methods):
        doc = self.peek().doc
        oneway = bool(self.accept("oneway"))
        name = self.name(methods, "method")
        line = self.line
        self.take("(")
        args = {}
        while not self.accept(")"):
            if args:
                self.take(",")
            arg_type = self.type(argument=True)
            arg = self.name(args, "argument")
            args[arg] = arg_type
        if self.accept("generates"):
            self.fail("oneway method with a return" if oneway else "return values are not understood")
        self.take(";")
        summary, texts = self.split_doc(doc, args, line)
        methods[name] = Method(name, oneway, [Field(type, arg, texts.get(arg, ""))
                                              for arg, type in args.items()], (doc, summary))

    def split_doc(self, doc, args, line):
        """What a comment says about a method, and about each argument."""
        summary, *params = re.split(r"(?:^|\n)@param +", "\n".join(lines_of(doc)))
        texts = {}
        for param in params:
            name, _, text = param.partition(" ")
            if name not in args:
                self.fail(f"comment on '{name}', which is no argument", line)
            texts[name] = " ".join(re.sub(r"(?<=\w)-\n\s*", "-", text).split())
        return summary.strip(), texts

    def interface(self):
        doc = self.peek().doc
        self.take("interface")
        name = self.name([], "type")
        if name != self.path.stem:
            self.fail(f"interface '{name}' in a file of another name")
        self.take("{")
        methods = {}
        while not self.accept("}"):
            self.method(methods)
        self.take(";")
        return Interface(name, self.imports, list(methods.values()), doc)

    def file(self, package):
        """Returns the interface, or None for types.hal, which fills `structs`."""
        if self.package() != package:
            self.fail("package differs from that of the other files")
        while self.accept("import"):
            name = self.take(kind="word")
            if name not in self.interfaces:
                self.fail(f"import of unknown '{name}'")
            self.imports.append(name)
            self.take(";")
        interface = None
        if self.path.stem == "types":
            while self.peek().kind != "end":
                self.struct()
        else:
            interface = self.interface()
        if self.peek().kind != "end":
            self.fail(f"expected end of file before '{self.peek().text}'")
        return interface


def parse(paths):
    paths = sorted(paths, key=lambda path: (path.stem != "types", path.stem))
    structs = {}
    names = [path.stem for path in paths if path.stem != "types"]
    package = Parser(paths[0], {}, []).package()
    interfaces = [Parser(path, structs, names).file(package) for path in paths]
    return package, list(structs.values()), [i for i in interfaces if i]


# C++.

def cpp_type(type):
    if type.kind in ("VEC", "ARRAY"):
        more = f", {type.count}" if type.kind == "ARRAY" else ""
        return f"::android::hardware::hidl_{type.kind.lower()}<{cpp_type(type.element)}{more}>"
    if type.kind == "INTERFACE":
        return f"::android::sp<{type.name}>"
    return "::android::hardware::hidl_string" if type.kind == "STRING" else type.name


def parameter(field):
    by_value = field.type.name in INTEGERS
    return f"{cpp_type(field.type)} {field.name}" if by_value else \
        f"const {cpp_type(field.type)}& {field.name}"


def comment(doc, indent=""):
    lines = lines_of(doc)
    return "".join(f"{indent}{line}".rstrip() + "\n"
                   for line in ["/**", *(f" * {line}" for line in lines), " */"]) if doc else ""


def signature(method, end):
    return (f"    {'virtual ' if end == ' = 0;' else ''}::android::hardware::Return<void> "
            f"{method.name}({', '.join(map(parameter, method.args))}){end}\n")


def literal(text):
    escaped = text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
    return f'"{escaped}"'


class Writer:
    def __init__(self, package, structs, interfaces, out):
        path, version = package
        self.structs, self.interfaces = structs, interfaces
        self.name = f"{'.'.join(path)}@{version}"
        self.namespace = f"{'::'.join(path)}::V{version.replace('.', '_')}"
        self.include = f"{'/'.join(path)}/{version}"
        self.out = out / self.include
        self.out.mkdir(parents=True, exist_ok=True)

    def write(self, file, includes, body, rest=""):
        once = "#pragma once\n\n" if file.endswith(".h") else ""
        text = "".join(f"#include <{include}>\n" for include in includes)
        (self.out / file).write_text(
            f"// Made by hidl-gen of {self.name}.\n\n{once}{text}\n"
            f"namespace {self.namespace} {{\n\n{body}}}  // namespace {self.namespace}\n{rest}",
            encoding="utf-8")

    def header(self, name):
        return f"{self.include}/{name}.h"

    def types(self):
        body = ""
        for struct in self.structs:
            fields = "".join(f"{comment('/**' + f.doc + '*/', '    ') if f.doc else ''}"
                             f"    {cpp_type(f.type)} {f.name};\n" for f in struct.fields)
            same = " &&\n           ".join(f"a.{f.name} == b.{f.name}" for f in struct.fields)
            body += (f"{comment(struct.doc)}struct {struct.name} final {{\n{fields}}};\n\n"
                     f"inline bool operator==(const {struct.name}& a, const {struct.name}& b) {{\n"
                     f"    return {same or 'true'};\n}}\n\n"
                     f"inline bool operator!=(const {struct.name}& a, const {struct.name}& b) {{\n"
                     f"    return !(a == b);\n}}\n\n")
        self.write("types.h", ["cstdint", "hidl/HidlSupport.h"], body)

    def interface(self, interface):
        name = interface.name
        methods = "".join(comment(m.doc[0], "    ") + signature(m, " = 0;") + "\n"
                          for m in interface.methods)
        body = (f"{comment(interface.doc)}struct {name} "
                f": public virtual ::android::hidl::base::V1_0::IBase {{\n"
                f"    static const char* const descriptor;\n\n{methods}"
                f"    void* asInterface(const char* wanted) override;\n\n"
                f"    static ::android::hardware::Return<::android::sp<{name}>> castFrom(\n"
                f"        const ::android::sp<::android::hidl::base::V1_0::IBase>& parent,\n"
                f"        bool emitError = false);\n"
                f"    static ::android::sp<{name}> getService("
                f"const std::string& serviceName = \"default\");\n"
                f"    ::android::status_t registerAsService("
                f"const std::string& serviceName = \"default\");\n}};\n\n")
        self.write(f"{name}.h", ["string", "android/hidl/base/1.0/IBase.h", "hidl/HidlSupport.h",
                                 *map(self.header, interface.imports), self.header("types")], body)

    def transport(self):
        """Proxies and stubs, for the desk alone."""
        body = "".join(f"void encode(hal::Parcel& parcel, const {s.name}& value);\n"
                       f"[[nodiscard]] bool decode(hal::Parcel& parcel, {s.name}& value);\n\n"
                       for s in self.structs)
        rest = ""
        for interface in self.interfaces:
            proxy = "BpHw" + interface.name[1:]
            methods = "".join(signature(m, " override;") for m in interface.methods)
            body += (f"class {proxy} : public {interface.name}, public hal::Proxy {{\n"
                     f"public:\n    using Proxy::Proxy;\n\n{methods}\n"
                     f"    ::android::hardware::Return<void> debug(\n"
                     f"            const ::android::hardware::hidl_handle& fd,\n"
                     f"            const ::android::hardware::hidl_vec<\n"
                     f"                    ::android::hardware::hidl_string>& options) override {{\n"
                     f"        return callAndWait(hal::DEBUG_CODE, fd, options);\n    }}\n}};\n\n")
            rest += (f"\ntemplate <>\nstruct hal::Binding<{self.namespace}::{interface.name}> {{\n"
                     f"    using Proxy = {self.namespace}::{proxy};\n"
                     f"    static const Handler<{self.namespace}::{interface.name}> METHODS[];\n"
                     f"    static const size_t METHOD_COUNT = {len(interface.methods)};\n}};\n")
        self.write("transport.h", ["hidl/Binding.h", *self.headers()], body, rest)

    def headers(self):
        return [self.header(i.name) for i in self.interfaces]

    def marshalling(self, struct):
        put = "".join(f"    encode(parcel, value.{f.name});\n" for f in struct.fields)
        get = " &&\n           ".join(f"decode(parcel, value.{f.name})" for f in struct.fields)
        return (f"void encode(hal::Parcel& parcel, const {struct.name}& value) {{\n{put}}}\n\n"
                f"bool decode(hal::Parcel& parcel, {struct.name}& value) {{\n"
                f"    return {get or 'true'};\n}}\n\n")

    def implementation(self, interface):
        name = interface.name
        base = "const ::android::sp<::android::hidl::base::V1_0::IBase>& parent"
        text = (f"const char* const {name}::descriptor = \"{self.name}::{name}\";\n\n"
                f"void* {name}::asInterface(const char* wanted) {{\n"
                f"    return hal::asInterface(this, wanted);\n}}\n\n"
                f"::android::hardware::Return<::android::sp<{name}>> {name}::castFrom(\n"
                f"        {base}, bool /*emitError*/) {{\n"
                f"    return hal::cast<{name}>(parent);\n}}\n\n"
                f"::android::sp<{name}> {name}::getService(const std::string& serviceName) {{\n"
                f"    return hal::getService<{name}>(serviceName);\n}}\n\n"
                f"::android::status_t {name}::registerAsService(const std::string& serviceName) {{\n"
                f"    return hal::publish(descriptor, serviceName, "
                f"new hal::InterfaceStub<{name}>(this));\n}}\n\n")
        for code, method in enumerate(interface.methods, 1):
            args = "".join(f", {arg.name}" for arg in method.args)
            call = "callOneway" if method.oneway else "callAndWait"
            text += (f"::android::hardware::Return<void> BpHw{name[1:]}::{method.name}("
                     f"{', '.join(map(parameter, method.args))}) {{\n"
                     f"    return {call}({code}{args});\n}}\n\n")
        return text

    def handlers(self, interface):
        name = f"{self.namespace}::{interface.name}"
        rows = "".join(f"    &handle<{name}, &{name}::{m.name}>,\n" for m in interface.methods)
        return f"\nconst hal::Handler<{name}> hal::Binding<{name}>::METHODS[] = {{\n{rows}}};\n"

    def sources(self):
        self.write("package.cpp", [self.header("transport")],
                   "".join(map(self.marshalling, self.structs)) +
                   "".join(map(self.implementation, self.interfaces)),
                   "".join(map(self.handlers, self.interfaces)))

    def tables(self):
        self.write("table.h", ["hidl/Table.h"],
                   "".join(f"extern const hal::Interface {i.name}_table;\n"
                           for i in self.interfaces) + "\n")
        table = Table(self.structs)
        values = "".join(f"const hal::Interface {i.name}_table{{{literal(i.name)}, "
                         f"\"{self.name}::{i.name}\", {table.methods(i)}, {len(i.methods)}, "
                         f"{literal(chr(10).join(lines_of(i.doc)))}}};\n\n"
                         for i in self.interfaces)
        self.write("table.cpp", [self.header("table")],
                   f"namespace {{\n\nusing Kind = hal::Type::Kind;\n\n{''.join(table.parts)}"
                   f"}}  // namespace\n\n{values}")


class Table:
    """The constants of table.cpp, each after those that it refers to."""

    def __init__(self, structs):
        self.structs = {struct.name: struct for struct in structs}
        self.types = {}  # name of the constant, by name of the type
        self.parts = []

    def array(self, type, name, rows):
        """Returns what refers to it; there are no empty arrays."""
        if rows:
            text = "".join(f"    {row},\n" for row in rows)
            self.parts.append(f"constexpr hal::{type} {name}[] = {{\n{text}}};\n\n")
        return name if rows else "nullptr"

    def fields(self, name, fields):
        return self.array("Field", name,
                          [f"{{{literal(f.name)}, &{self.type(f.type)}, {literal(f.doc)}}}"
                           for f in fields])

    def type(self, type):
        if type.name not in self.types:
            element = f"&{self.type(type.element)}" if type.element else "nullptr"
            members = self.structs[type.name].fields if type.kind == "STRUCT" else []
            fields = self.fields(f"{type.name}_FIELDS", members)
            name = self.types[type.name] = f"TYPE_{len(self.types) + 1}"
            self.parts.append(f"constexpr hal::Type {name}{{Kind::{type.kind}, "
                              f"{literal(type.name)}, {element}, {type.count}, {fields}, "
                              f"{len(members)}}};\n\n")
        return self.types[type.name]

    def methods(self, interface):
        rows = []
        for code, m in enumerate(interface.methods, 1):
            args = self.fields(f"{interface.name}_{m.name}", m.args)
            rows.append(f"{{{literal(m.name)}, {code}, {str(m.oneway).lower()}, {args}, "
                        f"{len(m.args)}, {literal(m.doc[1])}}}")
        return self.array("Method", f"{interface.name}_METHODS", rows)


def log_table(interfaces, plugin):
    """What the log reader knows: the requests, and which message of which client carries one."""
    ids = {(name.lower(), constant): int(value)
           for name, body in re.findall(r"namespace (\w+)Message \{(.*?)\n\}",
                                        (plugin / "params/MessageIds.h").read_text(), re.S)
           for constant, value in re.findall(r"(\w+) = (\d+),", body)}
    methods = [m.name for i in interfaces for m in i.methods
               if m.args and m.args[0].name == "serial" and i.name == "IModem"]
    messages = {}
    for source in sorted(plugin.glob("clients/*.cpp")):
        function = None
        for own, name, constant in re.findall(
                r"^\S[^\n]*QmiClient::(\w+)\(|[ (](\w+)Message::(\w+)",
                source.read_text(), re.M):
            function = own or function
            if not own and function in methods:
                messages[name.lower(), ids[name.lower(), constant]] = function
    rows = "".join(f"    {key!r}: {messages[key]!r},\n" for key in sorted(messages))
    names = "".join(f"    {name!r},\n" for name in methods)
    return (f"# Made by tools/hidl-gen.py --log-table.\nMETHODS = (\n{names})\n"
            f"MESSAGES = {{\n{rows}}}\n").replace("'", '"')


def main():
    arguments = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    arguments.add_argument("out", type=pathlib.Path, help="folder that becomes the include folder")
    arguments.add_argument("hal", type=pathlib.Path, nargs="+", help="all files of one package")
    arguments.add_argument("--log-table", type=pathlib.Path, metavar="PLUGIN", help="writes to the "
                           "file OUT what the log reader takes from there and from the plug-in")
    options = arguments.parse_args()
    try:
        package = parse(options.hal)
    except Error as error:
        sys.exit(str(error))
    if options.log_table:
        options.out.write_text(log_table(package[2], options.log_table))
        return
    writer = Writer(*package, options.out)
    writer.types()
    for interface in writer.interfaces:
        writer.interface(interface)
    writer.transport()
    writer.sources()
    writer.tables()


if __name__ == "__main__":
    main()
