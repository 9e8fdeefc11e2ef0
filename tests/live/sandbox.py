"""sandbox.py - runs a program with the rights and the system calls that a systemd unit gives it.

In:  the unit's file, a command. Out: that command as user `nobody`, with the unit's capabilities and a seccomp(2) filter of its
SystemCallFilter lines; a system call beside them ends it, as under systemd.
"""
import ctypes
import os
import re
import struct
import subprocess
import sys

HEADER = "/usr/include/%s/asm/unistd_64.h"
NOBODY = 65534
PR_SET_SECCOMP, PR_SET_NO_NEW_PRIVS, SECCOMP_MODE_FILTER = 22, 38, 2
ALLOW, KILL_PROCESS = 0x7FFF0000, 0x80000000
LOAD, JUMP_EQUAL, RETURN = 0x20, 0x15, 0x06  # of classic BPF; the number of the call is the first word


def group(name):
    """The calls of a group like @system-service, groups inside it resolved."""
    shown = subprocess.run(["systemd-analyze", "syscall-filter", name], capture_output=True, text=True, check=True).stdout
    words = {line.strip() for line in shown.splitlines()} - {"", name}
    return set().union(*(resolve(word) for word in words if not word.startswith("#")))


def resolve(word):
    return group(word) if word.startswith("@") else {word}


def values(unit, key):
    return re.findall(r"^%s=(.*)$" % key, unit, re.M)


def allowed(unit):
    """An allow-list line first; systemd adds what exec and exit need. Lines with ~ take away again."""
    calls = group("@default")
    for line in values(unit, "SystemCallFilter"):
        named = set().union(*(resolve(word) for word in line.lstrip("~").split()))
        calls = calls - named if line.startswith("~") else calls | named
    return calls


def numbers():
    text = open(HEADER % (os.uname().machine + "-linux-gnu")).read()
    return {name: int(number) for name, number in re.findall(r"#define __NR_(\w+) (\d+)", text)}


def confine(calls):
    known = numbers()
    program = [(LOAD, 0, 0, 0)]
    for call in sorted(calls & known.keys()):
        program += [(JUMP_EQUAL, 0, 1, known[call]), (RETURN, 0, 0, ALLOW)]
    program.append((RETURN, 0, 0, KILL_PROCESS))
    code = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *step) for step in program))
    head = struct.pack("HxxxxxxP", len(program), ctypes.addressof(code))
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, ctypes.c_char_p(head), 0, 0) != 0:
        sys.exit("seccomp: " + os.strerror(ctypes.get_errno()))


def main():
    unit, command = open(sys.argv[1]).read(), sys.argv[2:]
    if os.geteuid() != 0:  # the second time
        confine(allowed(unit))
        os.execv(command[0], command)
    rights = ",".join(["-all"] + ["+" + name.removeprefix("CAP_").lower() for name in values(unit, "AmbientCapabilities")[0].split()])
    again = [sys.executable, os.path.abspath(__file__), sys.argv[1]] + command
    os.execvp("setpriv", ["setpriv", "--reuid", str(NOBODY), "--regid", str(NOBODY), "--clear-groups", "--no-new-privs",
                          "--bounding-set", rights, "--inh-caps", rights, "--ambient-caps", rights] + again)


if __name__ == "__main__":
    main()
