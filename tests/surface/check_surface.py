#!/usr/bin/env python3
"""Checks what the built objects show to the loader: exports, imports, needed libraries, initialisers, hardening.

In:  the check's name, the readelf of the target, libvex_dhcp.so, for "hardening" vexhost and compile_commands.json too.
Out: one line per finding and exit 1; nothing but the count of what was compared and exit 0 otherwise.
"""
import argparse
import json
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).parent
RUNTIME_VERSION = re.compile(r"@@?(GLIBC|GLIBCXX|CXXABI|GCC)_")
# Weak references that start-up files of the tool chain put into every shared library.
TOOLCHAIN_WEAK = {"__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__cxa_finalize"}
NEEDED = {"libc.so.6", "libstdc++.so.6", "libm.so.6", "libgcc_s.so.1"}
REGISTRATION = "orb_modregfn_mod_vex_dhcp"
SANITIZER_NEEDED = re.compile(r"lib(asan|ubsan|tsan)\.so")


def readelf(tool, option, path):
    return subprocess.run([tool, "-W", option, path], check=True, capture_output=True, text=True).stdout


def dynamic_symbols(tool, path):
    """(name with version, kind, size, binding, section) of every named dynamic symbol."""
    for line in readelf(tool, "--dyn-syms", path).splitlines():
        words = line.split()
        if len(words) >= 8 and words[0].rstrip(":").isdigit() and words[3] != "SECTION":
            yield words[7], words[3], int(words[2], 0), words[4], words[6]


def committed(name):
    lines = (HERE / name).read_text().splitlines()
    return [line.split() for line in lines if line and not line.startswith("#")]


def check_exports(args):
    """The library defines the committed list with its kinds and data sizes, both ways, and no mangled name."""
    kinds = {"FUNC": "func", "OBJECT": "data", "TLS": "tls"}
    built = {
        name.split("@")[0]: (kinds.get(kind, kind), "-" if kind == "FUNC" else str(size))
        for name, kind, size, _, section in dynamic_symbols(args.readelf, args.library)
        if section not in ("UND", "ABS")
    }
    listed = {name: (kind, size) for kind, size, name in committed("exports.txt")}
    for name in sorted(listed.keys() - built.keys()):
        yield f"{name} is listed in exports.txt and not exported"
    for name in sorted(built.keys() - listed.keys()):
        mangled = " (a mangled name: give it hidden visibility)" if name.startswith("_Z") else ""
        yield f"{name} is exported and not listed in exports.txt{mangled}"
    for name in sorted(built.keys() & listed.keys()):
        if built[name] != listed[name]:
            yield f"{name} is {' '.join(built[name])} bytes, listed as {' '.join(listed[name])}"
    print(f"{len(built)} exports compared with {len(listed)} listed")


def check_imports(args):
    """What is undefined is an interface of the framework or of the C and C++ runtime."""
    framework = {words[0] for words in committed("imports.txt")}
    undefined = [(s[0], s[3]) for s in dynamic_symbols(args.readelf, args.library) if s[4] == "UND"]
    for name, binding in undefined:
        runtime = RUNTIME_VERSION.search(name) or (binding == "WEAK" and name in TOOLCHAIN_WEAK)
        if not runtime and name not in framework:
            yield f"{name} is undefined and neither in imports.txt nor of the C or C++ runtime"
    print(f"{len(undefined)} undefined symbols compared with {len(framework)} interfaces of the framework")


def check_needed(args):
    """SONAME and needed libraries: the module links against nothing but the C and C++ runtime."""
    dynamic = readelf(args.readelf, "--dynamic", args.library)
    soname = re.findall(r"\(SONAME\).*\[(.*)\]", dynamic)
    if soname != ["libvex_dhcp.so"]:
        yield f"SONAME is {soname}, not libvex_dhcp.so"
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    for name in needed:
        loader = name.startswith("ld-linux")
        if name not in NEEDED and not loader and not (args.sanitized and SANITIZER_NEEDED.match(name)):
            yield f"the library needs {name}"
    print(f"SONAME and {len(needed)} needed libraries checked")


def check_initialisers(args):
    """The module record is linked before any other initialiser of the library runs."""
    symbols = readelf(args.readelf, "--dyn-syms", args.library)
    registers = re.search(rf"([0-9a-f]+)\s+\d+\s+FUNC\s.*\s{REGISTRATION}$", symbols, re.MULTILINE)
    array = re.search(r"\sINIT_ARRAY\s+([0-9a-f]+)", readelf(args.readelf, "--sections", args.library))
    # The entries are filled in by relocations: fourth word, the symbol's value or the addend, is the function.
    filled = {
        int(words[0], 16): int(words[3], 16)
        for words in map(str.split, readelf(args.readelf, "--relocs", args.library).splitlines())
        if len(words) >= 4 and re.fullmatch(r"[0-9a-f]{16}", words[0])
    }
    if not registers or not array:
        yield f"no {REGISTRATION} or no load-time initialisers"
    elif filled.get(int(array[1], 16)) != int(registers[1], 16):
        yield f"{REGISTRATION} is not the first of the load-time initialisers"
    print("the first load-time initialiser checked")


def check_hardening(args):
    """Full RELRO, no executable stack, no text relocations; stack protector, _FORTIFY_SOURCE; PIE."""
    for path in (args.library, args.program):
        segments, dynamic = readelf(args.readelf, "--segments", path), readelf(args.readelf, "--dynamic", path)
        if "GNU_RELRO" not in segments or not re.search(r"\(BIND_NOW\)|\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW", dynamic):
            yield f"{path}: not full RELRO (GNU_RELRO and BIND_NOW)"
        stack = re.search(r"GNU_STACK\s.*", segments)
        if not stack or "E" in stack.group(0).split()[6]:
            yield f"{path}: executable stack"
        if "TEXTREL" in dynamic:
            yield f"{path}: text relocations"
    if not re.search(r"\(FLAGS_1\).*PIE", readelf(args.readelf, "--dynamic", args.program)):
        yield f"{args.program}: not position independent"
    if not args.sanitized:
        for path in (args.library, args.program):
            names = {s[0].split("@")[0] for s in dynamic_symbols(args.readelf, path) if s[4] == "UND"}
            if "__stack_chk_fail" not in names:
                yield f"{path}: no function with a stack protector"
    if args.optimised:
        if not any(re.fullmatch(r"__\w+_chk", name) for name in names):
            yield f"{args.program}: no checked libc call, _FORTIFY_SOURCE had no effect"
        # The module calls nothing of libc that is checked, so for it the compiler's command line has to do.
        commands = [entry for entry in json.loads(pathlib.Path(args.commands).read_text())
                    if re.search(r" -o \S+/(vex_dhcp|vexhost)\.dir/", entry["command"])]
        for entry in commands:
            for option in (r"-D_FORTIFY_SOURCE=[23]", r"-O[23]", r"-fstack-protector-strong"):
                if not re.search(rf"\s{option}\s", entry["command"]):
                    yield f"{entry['file']} is compiled without {option}"
        if not commands:
            yield f"{args.commands}: no source of the library or the program"
    print("hardening of the library and the program checked")


def main():
    checks = {name[6:]: function for name, function in globals().items() if name.startswith("check_")}
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("check", choices=checks)
    parser.add_argument("library")
    parser.add_argument("program", nargs="?")
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("--sanitized", action="store_true", help="the build carries sanitizer run-times")
    parser.add_argument("--optimised", action="store_true", help="the build has _FORTIFY_SOURCE")
    parser.add_argument("--commands", help="compile_commands.json of the build")
    args = parser.parse_args()
    findings = list(checks[args.check](args))
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
