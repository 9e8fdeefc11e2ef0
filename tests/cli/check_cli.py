#!/usr/bin/env python3
"""Runs vexhost on the committed captures: check_cli.py VEXHOST SOURCE_DIR.

In: the program and the source tree. Out: "ok" lines, or the first difference and exit code 1. The wrapper in front of the
program (an emulator) is taken from VEXHOST_WRAPPER.
"""
import glob
import json
import os
import subprocess
import sys
import tempfile

VEXHOST, SOURCE = sys.argv[1:3]
WRAPPER = os.environ.get("VEXHOST_WRAPPER", "").split()
FLOOD = f"{SOURCE}/captures/flood-and-client.pcapng"
RELAYED = f"{SOURCE}/captures/relayed.pcapng"
ACCESS = f"{SOURCE}/examples/access-switch.toml"
ALL = sorted(glob.glob(f"{SOURCE}/captures/*.pcapng"))


def run(*args, stdin=None):
    done = subprocess.run(WRAPPER + [VEXHOST, *args], capture_output=True, stdin=stdin, timeout=120, check=False)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


def check(what, condition, detail=""):
    if not condition:
        print(f"FAILED: {what}\n{detail}")
        sys.exit(1)
    print(f"ok: {what}")


def misuse():
    """Each: exit 2, nothing on stdout, one line on stderr that holds the words."""
    with tempfile.TemporaryDirectory() as scratch:
        bad = f"{scratch}/bad.toml"
        with open(bad, "w", encoding="utf-8") as file:
            file.write("[snooping.global]\nv4 = {rate = 70000}\n")
        text = f"{scratch}/not-a-capture.pcap"
        with open(text, "w", encoding="utf-8") as file:
            file.write("hello, this is not a capture file\n")
        cases = [
            ([], "a command is missing"),
            (["repaly"], 'unknown command "repaly", the nearest is replay'),
            (["replay"], "FILE is required"),
            (["replay", "--instnces", "3", RELAYED], "the nearest is --instances"),
            (["replay", "--instances", "-1", RELAYED], "not a whole number 0 to 4294967295"),
            (["replay", "--instances", "3x", RELAYED], "not a whole number"),
            (["replay", "--switches", "0x12345", RELAYED], "not a whole number 0 to 65535"),
            (["replay", "--port-by", "vlna", RELAYED], "the nearest is vlan"),
            (["replay", "--filter", "foo (", RELAYED], "--filter"),
            (["replay", "--config", bad, RELAYED], f"{bad}:2:14: snooping.global.v4.rate: 70000 is out of range, allowed 0 to 65535"),
            (["replay", "--config", scratch, RELAYED], scratch),
            (["replay", "--module", f"{scratch}/none.so", RELAYED], "no such file"),
            (["replay", "--module", text, RELAYED], text),
            (["replay", f"{scratch}/none.pcap"], f"{scratch}/none.pcap: cannot open"),
            (["replay", text], text),
            (["explain", RELAYED], "--frame is required"),
            (["explain", RELAYED, RELAYED, "--frame", "1"], f'"{RELAYED}" is an argument too many'),
            (["explain", RELAYED, "--frame", "0"], "not a whole number 1 to"),
            (["explain", RELAYED, "--frame", "31"], "has 30 frames"),
            (["explain", RELAYED, "--frame", "1", "--depth", "4"], "not a whole number 1 to 3"),
            (["explain", text, "--frame", "1"], text),
        ]
        for args, words in cases:
            code, out, err = run(*args)
            ok = code == 2 and out == "" and words in err and err.count("\n") == 1
            check(f"vexhost {' '.join(args)}".replace(scratch, "."), ok, f"code {code}\nstdout {out}\nstderr {err}")


def cut_capture():
    """A truncated capture: what was read is reported, then one line, exit 2."""
    with tempfile.NamedTemporaryFile(suffix=".pcapng") as cut:
        with open(RELAYED, "rb") as whole:
            cut.write(whole.read()[:-20])
        cut.flush()
        code, out, err = run("replay", cut.name)
        check("a truncated capture", code == 2 and "29 frames" in out and "holds" in out and err.count("\n") == 1, out + err)


def json_lines():
    code, out, err = run("replay", "--json", "--config", ACCESS, *ALL)
    lines = [json.loads(line) for line in out.splitlines()]
    summary = lines[-1]["summary"]
    frames = [line for line in lines[:-1] if "event" not in line]
    check("JSON: exit code and no complaint", code == 0 and err == "", err)
    check("JSON: a line per frame", summary["frames"] == len(frames) and len(summary["stats"]) == 8, str(summary))
    check("JSON: the identity", summary["frames"] == sum(summary[k] for k in ("not_presented", "not_wanted", "refused", "delivered", "failed")))
    refused = [line for line in frames if line["refused"] is not None]
    check("JSON: refused frames name who refused them",
          len(refused) == summary["refused"] > 3000 and all(line["refused_by"] and not line["delivered"] for line in refused))
    flood = [line for line in refused if line["file"] == os.path.basename(FLOOD)]
    check("the flooding port alone is refused", flood == refused and all(line["port"] == 1 for line in flood))
    seconds = {}
    for line in frames:
        if line["file"] == os.path.basename(FLOOD) and line["port"] == 1 and line["app_type"] == 17 and line["verdict"] == "taken":
            second = line["time"].split(".")[0]
            seconds[second] = seconds.get(second, 0) + 1
    check("100 packets of it pass per second", seconds and max(seconds.values()) == 100, str(seconds))
    reports = sum(line["refused"] for line in lines if line.get("event") == "speed-info")
    scopes = [line for line in lines if line.get("event") == "scope"]
    check("reports and what is pending add up", reports + sum(s["pending"] for s in scopes) == sum(s["refused"] for s in scopes), str(scopes))
    delivered = sum(1 for line in frames if line["delivered"])
    check("delivered frames reached a channel", delivered == summary["delivered"])
    check("two replays print the same bytes", run("replay", "--json", "--config", ACCESS, *ALL)[1] == out)


def report():
    first = run("replay", "--config", ACCESS, FLOOD)
    check("the report", first[0] == 0 and "holds" in first[1] and first[2] == "" and max(map(len, first[1].splitlines()[1:])) <= 100, first[1] + first[2])
    check("two reports are the same bytes", run("replay", "--config", ACCESS, FLOOD) == first)
    check("--quiet prints nothing", run("replay", "--quiet", FLOOD) == (0, "", ""))
    with open(FLOOD, "rb") as file:
        piped = run("replay", "--config", ACCESS, "-", stdin=file)
    check("standard input", piped[0] == 0 and piped[1].splitlines()[1:] == first[1].splitlines()[1:], piped[1] + piped[2])
    options = run("replay", "--json", "--config", ACCESS, "--switches", "0x0", "--instances", "1", RELAYED)
    lines = [json.loads(line) for line in options[1].splitlines()]
    check("options override the file", all(line["verdict"] == "continue" for line in lines[:-1] if "frame" in line), options[1])
    check("--version", run("--version")[:1] == (0,))
    check("--help shows examples", "Examples:" in run("replay", "--help")[1])


OUTCOME = ("port", "vlan", "app_type", "pkt_type", "taken", "channel", "verdict", "refused", "refused_by", "delivered")


def frames_of(*args):
    code, out, err = run("replay", "--json", *args)
    check("replay of " + " ".join(map(os.path.basename, args)), code == 0, err)
    return {line["frame"]: line for line in map(json.loads, out.splitlines()) if "frame" in line and "event" not in line}


def story_of(*args):
    code, out, err = run("explain", "--json", *args)
    check("explain " + " ".join(map(os.path.basename, args)), code == 0 and err == "", err)
    return json.loads(out)


def explain():
    """What explain tells is what a replay does, with the setting as it is and with the setting changed."""
    replayed = frames_of("--config", ACCESS, FLOOD)
    refused = [frame for frame, line in replayed.items() if line["refused"]]
    for frame in (1, refused[0], refused[-1], len(replayed)):
        story = story_of(FLOOD, "--frame", str(frame), "--config", ACCESS)
        line = replayed[frame]
        check(f"frame {frame} as replayed", all(story[key] == line[key] for key in OUTCOME), f"{story}\n{line}")
    story = story_of(FLOOD, "--frame", str(refused[0]), "--config", ACCESS)
    limit = [step for step in story["budgets"] if step["refused"]]
    check("a refusal names the budget that was used up", [(b["scope"], b["used"], b["limit"]) for b in limit] == [("interface 1", 100, 100)], str(limit))
    lifted = {what["setting"]: what["refused"] for what in story["what_if"]}
    check("lifting its limit lets it pass", lifted.get("snooping.interface.1.v4.rate", "refused") is None, str(lifted))
    captures = [RELAYED, f"{SOURCE}/captures/vlan-30.pcapng"]
    for capture in captures:
        bits = {}
        frames = frames_of(capture)
        for frame in list(frames)[::4]:
            story = story_of(capture, "--frame", str(frame))
            check("as replayed", all(story[key] == frames[frame][key] for key in OUTCOME), f"{story}\n{frames[frame]}")
            for what in story["what_if"]:
                if what["setting"].startswith("switches."):
                    bits.setdefault(what["setting"][9:], []).append((frame, what))
        names = ("v4_req v4_reply sw2 sw3 v4_snooping v4_arp_a mng_v4_reply v4_arp_b v6_req v6_reply mng_v4_req mng_v6_reply v6_snooping "
                 "nd_snooping mng_v4_req2 mlag_peerlink").split()
        check("some switch matters", bits)
        for name, told in bits.items():
            flipped = frames_of("--switches", hex(0x7FFF ^ 1 << names.index(name)), capture)
            check(f"{name} flipped does what was told",
                  all(what[key] == flipped[frame][key] for frame, what in told for key in OUTCOME if key in what), f"{told}")
    for depth, most in ((1, 1), (2, 40), (3, 120)):
        code, out, _ = run("explain", RELAYED, "--frame", "3", "--depth", str(depth))
        check(f"depth {depth}", code == 0 and 0 < out.count("\n") <= most, out)


misuse()
cut_capture()
json_lines()
report()
explain()
