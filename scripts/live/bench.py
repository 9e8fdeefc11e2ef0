#!/usr/bin/env python3
"""bench.py - `make bench-live`: the switch next to DHCP relays and a plain Linux bridge.

In:  the directory of the built programs. Out: a table of exchanges per second, CPU time per exchange and waiting times
(medians of the rounds), the latency that the switch adds over the bridge, its memory with 10,000 bindings.
Every round tries all candidates one after the other in networks of the same make with the same server, so that a busy
machine disturbs all of them alike. Undoes all it made.
"""
import glob
import json
import os
import statistics
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import lab as lab_module  # noqa: E402
from lab import LabError, wait_for  # noqa: E402

ROUNDS = int(os.environ.get("ROUNDS", "3"))
SECONDS = float(os.environ.get("SECONDS_PER_RUN", "3"))
RATE = 150        # exchanges per second at which CPU time and waiting are compared
WINDOW = 16       # exchanges at once for the highest rate
BINDINGS = 10_000
CLIENTS = 500     # below the 1024 entries of the kernel's neighbour table, in case a relay resolves addresses
SERVER4, SERVER6 = "10.64.0.1", "fd64::1"
MIDDLE4, MIDDLE6 = "10.64.0.2", "fd64::2"


def cpu_seconds(processes):
    """Time on a CPU of all threads, in the scheduler's own nanoseconds."""
    total = 0
    for process in processes:
        for path in glob.glob("/proc/%d/task/*/schedstat" % process.pid):
            with open(path) as stat:
                total += int(stat.read().split()[0])
    return total / 1e9


def memory(process):
    with open("/proc/%d/status" % process.pid) as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:")) / 1024


class Bench:
    """One candidate between one client side and one server: c0 -- m0 [middle] m1 -- s0."""

    def __init__(self, lab, programs, kind):
        self.lab, self.programs, self.kind = lab, programs, kind
        self.client, self.middle, self.server = (lab.namespace(kind + n) for n in ("-c", "-m", "-s"))
        lab.cable(self.middle, "m0", self.client, "c0", "02:64:00:00:00:c0")
        lab.cable(self.middle, "m1", self.server, "s0", "02:64:00:00:00:01")
        lab.address(self.server, "s0", SERVER4 + "/10", SERVER6 + "/64")
        self.measured = getattr(self, "_start_" + kind)()
        self._start_kea()

    def _start_kea(self):
        # Behind a relay the server answers to the relay's address, otherwise on its link: the same subnet serves both.
        self.servers = self.lab.kea(self.server, "s0", "kea-" + self.kind, pool4=("10.64.0.0/10", "10.65.0.0", "10.127.255.0"),
                                    pool6=("fd64::/64", "fd64::1:0:0", "fd64::1:ffff:ffff"), lifetime=7200, unicast6=SERVER6)

    def _start_bridge(self):
        lab = self.lab
        lab.run("ip", "link", "add", "br0", "type", "bridge", namespace=self.middle)
        for end in ("m0", "m1"):
            lab.run("ip", "link", "set", end, "master", "br0", namespace=self.middle)
        lab.run("ip", "link", "set", "br0", "up", namespace=self.middle)
        return []

    def _start_vexhost(self):
        self.lab.quiet(self.middle, "m0", "m1")
        self.lab.vexhost = os.path.join(self.programs, "vexhost")
        return [self.lab.switch(self.middle, ["m0", "m1:trusted"], name="vexhost-bench")]

    def _address_relay(self):
        # The client side gets addresses of the server's subnet too, so that the server chooses the same pool.
        lab = self.lab
        lab.address(self.middle, "m1", MIDDLE4 + "/32", MIDDLE6 + "/128")
        lab.address(self.middle, "m0", "10.64.0.3/32", "fd64::3/128")
        lab.run("ip", "route", "add", SERVER4, "dev", "m1", "src", MIDDLE4, namespace=self.middle)
        lab.run("ip", "-6", "route", "add", SERVER6, "dev", "m1", namespace=self.middle)
        lab.run("sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv6.conf.all.forwarding=1", namespace=self.middle)
        for target, via in (("10.64.0.3", MIDDLE4),):
            lab.run("ip", "route", "add", target, "via", via, "onlink", "dev", "s0", namespace=self.server)
        lab.run("ip", "-6", "route", "add", "fd64::3", "via", MIDDLE6, "dev", "s0", namespace=self.server)

    def _start_dhcrelay(self):
        self._address_relay()
        start = self.lab.start
        four = start(self.middle, ["dhcrelay", "-4", "-d", "--no-pid", "-id", "m0", "-iu", "m1", SERVER4], "dhcrelay4")
        six = start(self.middle, ["dhcrelay", "-6", "-d", "--no-pid", "-l", "m0", "-u", SERVER6 + "%m1"], "dhcrelay6")
        return [four, six]

    def _start_dnsmasq(self):
        self._address_relay()
        return [self.lab.start(self.middle, [
            "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--port=0", "--user=root", "--pid-file=",
            "--log-facility=-", "--dhcp-relay=10.64.0.3," + SERVER4, "--dhcp-relay=fd64::3," + SERVER6 + ",m1"],
            "dnsmasq-relay")]

    def load(self, family, **options):
        command = [os.path.join(self.programs, "live_load"), "--interface", "c0", "--family", str(family)]
        for name, value in options.items():
            command += ["--" + name, str(value)]
        done = self.lab.run(*command, namespace=self.client, timeout=120)
        return json.loads(done)

    def warm_up(self):
        for process in self.measured:
            if not process.alive():
                raise LabError("%s ended:\n%s" % (process.name, process.log()))
        for family in (4, 6):
            wait_for("%s answers over IPv%d" % (self.kind, family),
                     lambda f=family: self.load(f, seconds=1, exchanges=20, clients=20)["done"] == 20, 15)

    def measure(self, family):
        fast = self.load(family, seconds=SECONDS, window=WINDOW, clients=CLIENTS)
        before = cpu_seconds(self.measured)
        paced = self.load(family, seconds=SECONDS, rate=RATE, window=WINDOW, clients=CLIENTS)
        used = cpu_seconds(self.measured) - before
        return {"per_second": fast["per_second"], "failed": fast["failed"] + paced["failed"], "done": paced["done"],
                "cpu_us": used / max(paced["done"], 1) * 1e6, "p50_us": paced["p50_us"], "p99_us": paced["p99_us"]}


def memory_with_bindings(programs):
    with lab_module.Lab() as lab:
        bench = Bench(lab, programs, "vexhost")
        bench.warm_up()
        switch = bench.measured[0]
        bare = memory(switch)
        bench.load(4, seconds=100, window=64, clients=BINDINGS, exchanges=BINDINGS)
        count = lab.ctl(switch, "show", "summary")["bindings"]
        return bare, memory(switch), count


KINDS = ("bridge", "vexhost", "dhcrelay", "dnsmasq")


def main():
    programs = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/release/bin")
    reason = lab_module.missing(lab_module.PROGRAMS + ("dhcrelay",))
    if reason:
        print("make bench-live: cannot run here: " + reason)
        return 1
    results = {(kind, family): [] for kind in KINDS for family in (4, 6)}
    for number in range(ROUNDS):
        for kind in KINDS:
            print("round %d of %d: %s" % (number + 1, ROUNDS, kind), file=sys.stderr, flush=True)
            with lab_module.Lab() as lab:
                bench = Bench(lab, programs, kind)
                bench.warm_up()
                for family in (4, 6):
                    results[(kind, family)].append(bench.measure(family))

    def median(kind, family, what):
        return statistics.median(run[what] for run in results[(kind, family)])

    print("%d rounds of %g s per run; highest rate with %d exchanges at once, the rest at %d exchanges/s; load average %.1f"
          % (ROUNDS, SECONDS, WINDOW, RATE, os.getloadavg()[0]))
    for family, name in ((4, "DORA (DHCPv4)"), (6, "SARR (DHCPv6)")):
        print("\n%-14s %12s %16s %10s %10s %8s" % (name, "exchanges/s", "CPU us/exchange", "p50 us", "p99 us", "failed"))
        for kind in KINDS:
            cpu = "-" if kind == "bridge" else "%.0f" % median(kind, family, "cpu_us")
            print("%-14s %12.0f %16s %10.0f %10.0f %8d" % (
                kind, median(kind, family, "per_second"), cpu, median(kind, family, "p50_us"),
                median(kind, family, "p99_us"), sum(run["failed"] for run in results[(kind, family)])))
        best = min(median(kind, family, "cpu_us") for kind in ("dhcrelay", "dnsmasq"))
        print("vexhost: %.0f%% of the bridge's rate, %.0f%% of the best relay's CPU time; adds per message over the bridge: "
              "p50 %.0f us, p99 %.0f us" % (
                  100 * median("vexhost", family, "per_second") / median("bridge", family, "per_second"),
                  100 * median("vexhost", family, "cpu_us") / max(best, 1e-9),
                  (median("vexhost", family, "p50_us") - median("bridge", family, "p50_us")) / 2,
                  (median("vexhost", family, "p99_us") - median("bridge", family, "p99_us")) / 2))
    bare, full, count = memory_with_bindings(programs)
    print("\nresident memory of vexhost: %.1f MiB at first, %.1f MiB with %d bindings" % (bare, full, count))
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except LabError as error:
        print("make bench-live: %s" % error, file=sys.stderr)
        sys.exit(1)
