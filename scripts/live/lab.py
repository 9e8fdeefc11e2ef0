"""lab.py - namespaces, cables and programs for trying the switch with real clients and servers.

In:  calls of whoever builds a network (demo.py, bench.py, tests/live). Out: running programs, their logs, leases.
Every name carries this process's id, programs are ended by the id that started them, and close() undoes all of it,
also when the caller fails or is interrupted. Nothing that this process did not make is touched.
"""
import atexit
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

PROGRAMS = ("kea-dhcp4", "kea-dhcp6", "dnsmasq", "dhclient", "udhcpc", "dhcpcd", "perfdhcp", "ip", "ethtool", "ping", "sysctl",
            "tcpdump")
SKIPPED = 77  # ctest's SKIP_RETURN_CODE


class LabError(Exception):
    """What went wrong, in one line; the log of the program concerned follows when there is one."""


def missing(programs=PROGRAMS):
    """Why the lab cannot be built here, or None."""
    absent = [name for name in programs if shutil.which(name) is None and not os.path.exists("/usr/sbin/" + name)]
    if absent:
        return "not installed: %s (packages in scripts/packages-live.txt)" % ", ".join(absent)
    if os.geteuid() != 0:
        return "network namespaces need root"
    name = "vx%d-try" % os.getpid()
    made = subprocess.run(["ip", "netns", "add", name], capture_output=True, text=True)
    if made.returncode != 0:
        return "network namespaces are not permitted: %s" % made.stderr.strip()
    subprocess.run(["ip", "netns", "del", name], check=False)
    return None


def wait_for(what, condition, seconds=10.0, pause=0.05):
    """Answers the condition's first true result."""
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise LabError("timed out after %g s: %s" % (seconds, what))
        time.sleep(pause)


class Process:
    """A program in a namespace, in a process group of its own, its output in a file."""

    def __init__(self, lab, namespace, command, name, env=None):
        self.name = name
        self.log_path = os.path.join(lab.directory, name + ".log")
        self._log = open(self.log_path, "w")
        full = ["ip", "netns", "exec", namespace] + command if namespace else command
        self.popen = subprocess.Popen(full, stdin=subprocess.DEVNULL, stdout=self._log, stderr=subprocess.STDOUT,
                                      start_new_session=True, env=dict(os.environ, **(env or {})), cwd=lab.directory)

    @property
    def pid(self):
        return self.popen.pid

    def log(self):
        with open(self.log_path, errors="replace") as log:
            return log.read()

    def alive(self):
        return self.popen.poll() is None

    def send_signal(self, number):
        try:
            os.killpg(self.popen.pid, number)
        except ProcessLookupError:
            pass

    def stop(self, number=signal.SIGTERM, seconds=5.0):
        """Ends it; answers its exit code."""
        if self.alive():
            self.send_signal(number)
            try:
                self.popen.wait(seconds)
            except subprocess.TimeoutExpired:
                self.send_signal(signal.SIGKILL)
                self.popen.wait(5)
        else:
            self.send_signal(signal.SIGKILL)  # children that outlived it
        self._log.close()
        return self.popen.returncode


class Lab:
    """Use as `with Lab() as lab:`."""

    def __init__(self, vexhost=None):
        self.tag = "vx%d" % os.getpid()
        self.directory = tempfile.mkdtemp(prefix=self.tag + "-")
        os.chmod(self.directory, 0o755)  # dnsmasq and dhcpcd give root up
        self.vexhost = vexhost
        self.write("hook", self.HOOK, 0o755)
        self.namespaces = []
        self.processes = []
        atexit.register(self.close)
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            signal.signal(number, lambda *_: sys.exit(1))

    def __enter__(self):
        return self

    def __exit__(self, kind, error, trace):
        self.close()

    def close(self):
        for process in reversed(self.processes):
            process.stop()
        self.processes = []
        for namespace in self.namespaces:  # takes its ends of the cables along, and thereby the cables
            subprocess.run(["ip", "netns", "del", namespace], check=False, capture_output=True)
        self.namespaces = []
        shutil.rmtree(self.directory, ignore_errors=True)
        atexit.unregister(self.close)

    # ---- building ----

    def run(self, *command, namespace=None, check=True, timeout=30):
        full = ["ip", "netns", "exec", namespace] + list(command) if namespace else list(command)
        done = subprocess.run(full, capture_output=True, text=True, timeout=timeout)
        if check and done.returncode != 0:
            raise LabError("%s: %s" % (" ".join(full), (done.stderr or done.stdout).strip()))
        return done.stdout

    def namespace(self, name):
        full = "%s-%s" % (self.tag, name)
        self.run("ip", "netns", "add", full)
        self.namespaces.append(full)
        # Duplicate address detection would cost a second per address; the lab's addresses are known to be unique.
        for setting in ("all", "default"):
            self.run("sysctl", "-qw", "net.ipv6.conf.%s.accept_dad=0" % setting, namespace=full)
        self.run("ip", "link", "set", "lo", "up", namespace=full)
        return full

    def cable(self, space_a, end_a, space_b, end_b, mac_b=None, offload=True):
        """A veth pair, both ends up. mac_b: hardware address of the second end."""
        self.run("ip", "link", "add", "name", end_a, "netns", space_a, "type", "veth", "peer", "name", end_b,
                 "netns", space_b)
        if mac_b:
            self.run("ip", "link", "set", end_b, "address", mac_b, namespace=space_b)
        for space, end in ((space_a, end_a), (space_b, end_b)):
            if not offload:
                self.run("ethtool", "-K", end, "tx", "off", "rx", "off", namespace=space)
            self.run("ip", "link", "set", end, "up", namespace=space)

    def quiet(self, namespace, *interfaces):
        """No IPv6 of the kernel's own on the switch's side."""
        for interface in interfaces:
            self.run("sysctl", "-qw", "net.ipv6.conf.%s.disable_ipv6=1" % interface, namespace=namespace)

    def address(self, namespace, interface, *addresses):
        for address in addresses:
            nodad = ["nodad"] if ":" in address else []
            self.run("ip", "address", "add", address, "dev", interface, *nodad, namespace=namespace)

    def start(self, namespace, command, name, env=None):
        process = Process(self, namespace, command, name, env)
        self.processes.append(process)
        return process

    def forget(self, process):
        self.processes.remove(process)

    def path(self, name):
        return os.path.join(self.directory, name)

    def write(self, name, text, mode=0o644):
        with open(self.path(name), "w") as file:
            file.write(text)
        os.chmod(self.path(name), mode)
        return self.path(name)

    # ---- the switch ----

    def switch(self, namespace, ports, *options, name="vexhost", prefix=()):
        command = list(prefix) + [self.vexhost, "run", "--socket", self.path(name + ".sock")]
        for port in ports:
            command += ["--port", port]
        process = self.start(namespace, command + list(options), name)
        process.socket = self.path(name + ".sock")

        def ready():
            if not process.alive():
                raise LabError("vexhost ended with %d:\n%s" % (process.popen.returncode, process.log()))
            return "ready:" in process.log()
        wait_for("vexhost is ready", ready, 20)
        return process

    def ctl(self, switch, *words, json_output=True, check=True):
        command = [self.vexhost, "ctl", "--socket", switch.socket] + (["--json"] if json_output else []) + list(words)
        done = subprocess.run(command, capture_output=True, text=True, timeout=20)
        if check and done.returncode != 0:
            raise LabError("%s: %s" % (" ".join(words), done.stderr.strip()))
        if not check:
            return done
        return json.loads(done.stdout) if json_output else done.stdout

    # ---- servers ----

    def kea(self, namespace, interface, name="kea", pool4=None, pool6=None, lifetime=600, unicast6=None):
        """pool4: (subnet, first, last); pool6: (subnet, first, last, prefix or None); unicast6: address for relays."""
        env = {"KEA_PIDFILE_DIR": self.directory, "KEA_LOCKFILE_DIR": self.directory}
        log = [{"name": "kea-dhcp%d" % v, "output_options": [{"output": "stdout"}], "severity": "WARN"} for v in (4, 6)]
        os.makedirs("/var/lib/kea", exist_ok=True)  # where it looks for its server id
        started = []
        if pool4:
            config = {"Dhcp4": {
                "interfaces-config": {"interfaces": [interface], "dhcp-socket-type": "raw"},
                "lease-database": {"type": "memfile", "persist": True, "name": self.path(name + "4.csv"), "lfc-interval": 0},
                "valid-lifetime": lifetime, "loggers": [log[0]],
                "subnet4": [{"subnet": pool4[0], "interface": interface,
                             "pools": [{"pool": "%s - %s" % pool4[1:3]}]}]}}
            started.append((4, config))
        if pool6:
            subnet = {"subnet": pool6[0], "interface": interface, "pools": [{"pool": "%s - %s" % pool6[1:3]}]}
            if len(pool6) > 3 and pool6[3]:
                subnet["pd-pools"] = [{"prefix": pool6[3], "prefix-len": 48, "delegated-len": 64}]
            config = {"Dhcp6": {
                "interfaces-config": {"interfaces": [interface] + ([interface + "/" + unicast6] if unicast6 else [])},
                "server-id": {"type": "LL", "persist": False},
                "lease-database": {"type": "memfile", "persist": True, "name": self.path(name + "6.csv"), "lfc-interval": 0},
                "preferred-lifetime": lifetime, "valid-lifetime": lifetime, "loggers": [log[1]], "subnet6": [subnet]}}
            started.append((6, config))
        processes = []
        for version, config in started:
            path = self.write("%s%d.json" % (name, version), json.dumps(config))
            processes.append(self.start(namespace, ["kea-dhcp%d" % version, "-c", path], "%s%d" % (name, version), env))
        for version, process in zip((v for v, _ in started), processes):
            wait_for("%s serves" % process.name, lambda v=version, p=process: self._serves(namespace, v, p), 15)
        return processes

    def _serves(self, namespace, version, process):
        if not process.alive():
            raise LabError("%s ended:\n%s" % (process.name, process.log()))
        if version == 4:  # a raw socket: nothing to see but the packet socket
            return len(self.run("cat", "/proc/net/packet", namespace=namespace).splitlines()) > 1
        return ":547 " in self.run("ss", "-Hunl6", namespace=namespace) + " "

    def dnsmasq(self, namespace, interface, ranges, name, options=()):
        command = ["dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--port=0", "--user=root", "--log-dhcp",
                   "--log-facility=-", "--interface=" + interface, "--bind-interfaces", "--dhcp-authoritative",
                   "--no-ping", "--leasefile-ro" if name.startswith("rogue") else
                   "--dhcp-leasefile=" + self.path(name + ".leases"), "--pid-file="]
        command += ["--dhcp-range=" + r for r in ranges] + list(options)
        process = self.start(namespace, command, name)
        time.sleep(0.2)
        if not process.alive():
            raise LabError("dnsmasq ended:\n%s" % process.log())
        return process

    # ---- clients ----

    HOOK = """#!/bin/sh
# Keeps what the client learned; dhclient and dhcpcd name the event in $reason, udhcpc in its first argument.
[ -n "$LAB_LEASES" ] || exit 0
{ echo "event=${reason:-$1}"; env | grep -E '^(ip|serverid|new_[a-z0-9_]*)='; echo; } >> "$LAB_LEASES"
exit 0
"""

    def client(self, program, namespace, interface, version=4, name=None, prefix=False, once=False):
        """Starts a client; answers a Client."""
        name = name or "%s-%s-v%d" % (program, interface, version)
        hook = self.path("hook")
        leases = self.path(name + ".env")
        open(leases, "w").close()
        if program == "udhcpc":
            command = ["udhcpc", "-f", "-i", interface, "-s", hook, "-t", "10", "-T", "1", "-A", "1"] + (["-n", "-q"] if once else [])
        elif program == "dhclient":
            family = ["-4"] if version == 4 else ["-6", "-N"] + (["-P"] if prefix else [])
            command = ["dhclient", "-d", "-v"] + family + (["-1"] if once else []) + [
                "-cf", "/dev/null", "-lf", self.path(name + ".leases"), "-pf", self.path(name + ".pid"), "-sf", hook,
                "-e", "LAB_LEASES=" + leases, interface]
        else:
            text = "script %s\nduid ll\nnoarp\n" % hook
            text += "ipv4only\n" if version == 4 else "ipv6only\nnoipv6rs\ninterface %s\n  ia_na 1\n" % interface
            config = self.write(name + ".conf", "allowinterfaces %s\nenv LAB_LEASES=%s\n" % (interface, leases) + text)
            # Its state directory belongs to the whole machine: in here it gets one of its own.
            inner = ("mkdir -p /run/dhcpcd /var/lib/dhcpcd && mount -t tmpfs none /run/dhcpcd && "
                     "mount -t tmpfs none /var/lib/dhcpcd && exec dhcpcd -B -d -f %s %s" % (config, interface))
            command = ["sh", "-c", inner]
        process = self.start(namespace, command, name, {"LAB_LEASES": leases})
        return Client(self, process, leases, version)


class Client:
    EVENTS = ("bound", "renew", "BOUND", "RENEW", "REBIND", "BOUND6", "RENEW6", "REBIND6", "REBOOT")
    ADDRESS = ("ip", "new_ip_address", "new_ip6_address", "new_dhcp6_ia_na1_ia_addr1")
    SERVER = ("serverid", "new_dhcp_server_identifier")

    def __init__(self, lab, process, leases, version):
        self.lab, self.process, self.leases, self.version = lab, process, leases, version

    def events(self):
        with open(self.leases) as file:
            blocks = file.read().split("\n\n")
        return [dict(line.split("=", 1) for line in block.splitlines() if "=" in line) for block in blocks if block.strip()]

    def lease(self):
        """(address, server) of the last lease, or None."""
        for event in reversed(self.events()):
            if event.get("event") not in self.EVENTS:
                continue
            address = next((event[key] for key in self.ADDRESS if key in event), None)
            if address:
                return address.split("/")[0], next((event[key] for key in self.SERVER if key in event), "")
        return None

    def wait(self, seconds=20):
        try:
            return wait_for("%s has a lease" % self.process.name, self.lease, seconds)
        except LabError as error:
            raise LabError("%s\n%s" % (error, self.process.log()[-2000:])) from None

    def stop(self, number=signal.SIGTERM):
        return self.process.stop(number)
