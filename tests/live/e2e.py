#!/usr/bin/env python3
"""e2e.py - the switch with real clients and servers, one scenario per run.

In:  the directory of the built programs, a scenario's name. Out: exit code 0, 1 with what went wrong, or 77 with a line
that says why this machine cannot run it. Every scenario builds its own network and undoes it.
"""
import csv
import glob
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time
import tomllib
import urllib.request

SOURCE = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
sys.path.insert(0, os.path.join(SOURCE, "scripts", "live"))
import forge  # noqa: E402
import lab as lab_module  # noqa: E402
import network  # noqa: E402
from lab import LabError, wait_for  # noqa: E402

BIN = os.path.abspath(sys.argv[1])
CAP_NET_RAW = 1 << 13


def expect(condition, what):
    if not condition:
        raise LabError("not so: " + what)


def identity(lab, switch):
    summary = lab.ctl(switch, "show", "summary")
    parts = [summary[name] for name in ("not_presented", "not_wanted", "refused", "delivered", "failed")]
    expect(summary["identity_holds"] and summary["frames"] == sum(parts), "frames add up: %s" % summary)
    return summary


def bindings(lab, switch):
    return {(b["address"], b["vlan"]): b for b in lab.ctl(switch, "show", "bindings")}


def port_row(lab, switch, name):
    return next(row for row in lab.ctl(switch, "show", "ports") if row["port"] == name)


def end(switch):
    """Ends the switch by SIGTERM; its closing summary must add up."""
    expect(switch.stop() == 0, "the switch ended with 0:\n" + switch.log())
    expect(": holds" in switch.log(), "the closing summary adds up")


# ---- leases: who gets what from whom, with 1, 2 and 4 instances ----------------------------------------------------

def kea_leases(lab):
    """address -> (hardware address or DUID), as the servers wrote them."""
    leases = {}
    for version, key in ((4, "hwaddr"), (6, "duid")):
        with open(lab.path("kea%d.csv" % version)) as file:
            for row in csv.DictReader(file):
                leases[row["address"]] = row[key].replace(":", "")
    return leases


def dnsmasq_leases(lab):
    leases = {}
    with open(lab.path("dnsmasq.leases")) as file:
        for line in file:
            words = line.split()
            if words[0] != "duid" and len(words) >= 5:
                leases[words[2]] = (words[4] if ":" in words[2] else words[1]).replace(":", "")
    return leases


def check_bindings(lab, switch, net, leased):
    """Exactly the leases the servers wrote, each on the right port and VLAN and with the right client."""
    table = wait_for("all leases are bound", lambda: (lambda t: t if len(t) == len(leased) else None)(bindings(lab, switch)))
    servers = {1: kea_leases(lab), network.VLAN: dnsmasq_leases(lab)}
    for (address, vlan), binding in table.items():
        bare = address.split("/")[0]
        expect(bare in servers[vlan], "%s in VLAN %d is in a server's lease file" % (address, vlan))
        owner = binding["duid"] if binding["duid"] else binding["mac"].replace(":", "")
        expect(servers[vlan][bare] == owner, "%s belongs to %s" % (address, owner))
        expect(leased.get(bare) == binding["port"], "%s is bound to %s" % (address, leased.get(bare)))
        expect(500 < binding["seconds_left"] <= 600, "the lease of %s ends in ten minutes" % address)
    return table


def watch_for_rogue(lab, net):
    """What of the rogue's DHCP messages and router advertisements reaches a client."""
    matching = "(ether[6:2] == 0x0266) and (udp port 68 or udp port 546 or (icmp6 and ip6[40] == 134))"
    watchers = []
    for port in ("p1", "p2", "p3"):
        space, interface = net.clients[port]
        watchers.append(lab.start(space, ["tcpdump", "-nel", "-i", interface, matching], "watch-" + port))
    for watcher in watchers:
        wait_for("tcpdump listens", lambda w=watcher: "listening on" in w.log())
    return watchers


def scenario_leases(lab, instances):
    net = network.Network(lab)
    saved = lab.path("bindings")
    options = ["--instances", str(instances), "--threads", str(min(instances, 2)), "--bindings", saved]
    ports = [port + ",vlan=1" if port.startswith("up0") else port for port in net.ports()]  # the default, spelled out
    switch = lab.switch(net.space, ports, *options)
    net.start_servers()
    watchers = watch_for_rogue(lab, net)
    plan = [("dhclient", "p1", 4), ("udhcpc", "p2", 4), ("dhcpcd", "p3", 4), ("udhcpc", "p4", 4),
            ("dhclient", "p1", 6), ("dhcpcd", "p3", 6), ("dhclient", "p4", 6)]
    clients = [(port, version, net.client(program, port, version)) for program, port, version in plan]
    leased = {}
    for port, version, client in clients:
        address, server = client.wait(30)
        tagged = port == "p4"
        pool = {(4, False): "10.71.0.", (4, True): "10.72.0.", (6, False): "fd71::", (6, True): "fd72::"}[(version, tagged)]
        expect(address.startswith(pool), "%s got %s from %s" % (client.process.name, address, pool))
        if version == 4:
            expect(server == (network.TAGGED4_SERVER if tagged else network.KEA4_SERVER), "%s is the trusted server" % server)
        leased[address] = port

    forged = [forge.offer(network.ROGUE4, number, kind) for number in range(10) for kind in (2, 5)]
    forged.insert(0, forge.advertise(network.ROGUE6, 1))
    forge.send(lab, net.rogue_space, "x0", forged)
    wait_for("the offers are refused", lambda: port_row(lab, switch, "r0")["rogue_server"] == len(forged))
    for server in (network.ROGUE4, network.ROGUE6):
        expect(re.search(r"r0: rogue DHCP server: port 7, VLAN 1, MAC 02:66:\S+, server %s: " % server, switch.log()),
               "%s is named in the log: %s" % (server, switch.log()))
    expect("DHCPDISCOVER" not in net.rogue.log() and "DHCPSOLICIT" not in net.rogue.log(), "the rogue hears no client")
    wait_for("a router advertisement is refused", lambda: port_row(lab, switch, "r0")["ra_guard"] > 0, 15)
    for watcher in watchers:
        watcher.stop(signal.SIGINT)
        expect(re.search(r"^0 packets captured", watcher.log(), re.M), "nothing of the rogue got through:\n" + watcher.log())

    before = check_bindings(lab, switch, net, leased)
    share = [row for row in lab.ctl(switch, "show", "channels") if row["sent"] and row["carries"] == "DHCP"]
    expect(share and all(int(re.findall(r"\d+$", row["channel"])[0]) < 3 + instances for row in share),
           "DHCP goes to the %d instances: %s" % (instances, share))
    identity(lab, switch)

    wait_for("the bindings are saved", lambda: os.path.exists(saved) and open(saved).read().count("\n") == len(before) + 1)
    switch.stop(signal.SIGKILL)
    expect(os.path.exists(switch.socket), "a killed switch leaves its socket behind")
    switch = lab.switch(net.space, ports, *options, name="vexhost")
    after = wait_for("the bindings are back", lambda: (lambda t: t if len(t) == len(before) else None)(bindings(lab, switch)))
    for key, binding in before.items():
        expect(all(after[key][name] == binding[name] for name in ("mac", "duid", "port", "kind")), "%s is as before" % (key,))

    address = clients[2][2].lease()[0]
    # The client drops its address right behind the RELEASE: by then it must know where the server is.
    lab.run("ping", "-c", "1", "-W", "5", network.KEA4_SERVER, namespace=net.clients["p3"][0])
    os.kill(clients[2][2].process.pid, signal.SIGALRM)  # dhcpcd: release and end
    wait_for("the released binding is gone", lambda: (address, 1) not in bindings(lab, switch))
    end(switch)


# ---- flood: one port floods, a client on another does not notice ---------------------------------------------------

def scenario_flood(lab):
    net = network.Network(lab)
    switch = lab.switch(net.space, net.ports())
    net.start_servers(rogue=False)
    limit = 50
    lab.ctl(switch, "set", "snooping.interface.1.v4.rate", str(limit))
    lab.ctl(switch, "set", "snooping.interface.1.v4.enable", "true")
    lab.address(net.clients["p1"][0], "e1", "10.71.0.50/24")  # perfdhcp is a relay agent and needs an address
    # Far above the limit, for as long as the client below tries.
    flood = lab.start(net.clients["p1"][0], ["perfdhcp", "-4", "-B", "-i", "-r", "4000", "-R", "5000", "-p", "60",
                                             "-l", "e1", "all"], "perfdhcp")
    wait_for("the flood is refused", lambda: port_row(lab, switch, "p1")["refused"] > 1000, 20)
    successes, tries, deadline = 0, 0, time.monotonic() + 15
    while time.monotonic() < deadline:
        client = net.client("udhcpc", "p2", once=True, name="try%d" % tries)
        tries += 1
        try:
            successes += client.process.popen.wait(15) == 0 and client.lease() is not None
        except subprocess.TimeoutExpired:
            pass
        client.stop()
        lab.forget(client.process)
        identity(lab, switch)
    expect(flood.alive(), "the flood lasted:\n" + flood.log()[-1500:])
    flood.stop(signal.SIGKILL)
    time.sleep(0.5)  # what is still in the ring
    expect(tries >= 5 and successes == tries, "%d of %d attempts got a lease during the flood" % (successes, tries))
    summary = identity(lab, switch)
    rows = {row["port"]: row for row in lab.ctl(switch, "show", "ports")}
    expect(rows["p1"]["refused"] == summary["refused"] > 10000, "all refusals are the flooding port's: %s" % summary)
    scopes = {(row["scope"], row["version"]): row for row in lab.ctl(switch, "show", "limits")}
    expect(scopes[("interface 1", "v4")]["refused"] == summary["refused"], "and its interface budget's: %s" % scopes)
    expect(len(scopes) == 1, "no other budget refused anything: %s" % scopes)
    print("flood: %d frames refused of %d on p1, %d of %d leases on p2" % (rows["p1"]["refused"], rows["p1"]["frames"],
                                                                         successes, tries))
    end(switch)


# ---- control: everything that may change while it runs -------------------------------------------------------------

def scrape(port, lab, space):
    text = lab.run(sys.executable, "-c", "import urllib.request as u; print(u.urlopen('http://127.0.0.1:%d/metrics', "
                   "timeout=5).read().decode(), end='')" % port, namespace=space)
    values = {}
    for line in text.splitlines():
        if not line.startswith("#"):
            name, value = line.rsplit(" ", 1)
            values[name] = float(value)
    return text, values


def check_metrics(lab, switch, space):
    text, values = scrape(9967, lab, space)
    names = {re.match(r"[a-z0-9_]+", name).group() for name in values}
    expect(all(name.startswith("vex_") for name in names), "every name starts with vex_: %s" % names)
    labels = set(re.findall(r'[{,]([a-z_]+)="', text)) - {"le"}
    expect(labels <= {"port", "vlan", "kind", "reason", "instance"}, "labels are %s" % labels)
    summary = identity(lab, switch)
    total = sum(v for n, v in scrape(9967, lab, space)[1].items() if n.startswith("vex_packets_delivered_total"))
    expect(total >= summary["delivered"] > 0, "delivered packets are counted: %s of %s" % (total, summary["delivered"]))
    if shutil.which("promtool") is None:
        print("SKIPPED PART: promtool is not installed (package prometheus), the exposition was not linted")
        return
    lint = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True)
    expect(lint.returncode == 0 and not lint.stderr, "promtool accepts the metrics:\n" + lint.stdout + lint.stderr)


def raw_request(switch, data):
    with socket.socket(socket.AF_UNIX) as peer:
        peer.settimeout(5)
        peer.connect(switch.socket)
        peer.sendall(data)
        answer = b""
        while not answer.endswith(b"\n"):
            part = peer.recv(65536)
            if not part:
                break
            answer += part
        return json.loads(answer)


def cpu_seconds(pid):
    fields = open("/proc/%d/stat" % pid).read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def real_pid(process):
    """`ip netns exec` becomes the program it starts."""
    return process.pid


def scenario_control(lab):
    net = network.Network(lab)
    config = lab.write("vexhost.toml", """
[switches]
v4_req = true
v4_reply = true
v4_snooping = true
[live]
metrics = "127.0.0.1:9967"
[[port]]
index = 1
name = "p1"
[[port]]
index = 2
name = "up0"
trusted = true
""")
    switch = lab.switch(net.space, [], "--config", config)
    status = open("/proc/%d/status" % real_pid(switch)).read()
    for task in glob.glob("/proc/%d/task/*/status" % real_pid(switch)):
        for line in open(task):
            if re.match("Cap(Prm|Eff):", line):
                expect(int(line.split()[1], 16) & ~CAP_NET_RAW == 0, "no right but CAP_NET_RAW is left: " + line)
    expect("NoNewPrivs:\t1" in status, "no rights can be gained")
    expect(os.stat(switch.socket).st_mode & 0o777 == 0o600, "the socket is its owner's alone")
    net.start_servers(rogue=False)
    net.client("udhcpc", "p1", once=True).wait()

    # Bad requests change nothing.
    before = {what: lab.ctl(switch, "show", what) for what in ("limits", "switches")}
    for data in (b"\n", b"{}\n", b"nonsense\n", b'{"command":"show","what":"x"}\n', b"[" * 4096 + b"\n", b"x" * 5000,
                 b'{"command":"set","key":"degrade_rate","value":"-1"}\n', b"\xff\xfe\n"):
        answer = raw_request(switch, data)
        expect(answer["ok"] is False and answer["error"], "%r is refused" % data[:40])
    for words in (("set", "snooping.interface.1.v4.rat", "5"), ("set", "board", "2"), ("set", "live.metrics", "256.0.0.1:1"),
                  ("set", "live.bindings", "/nonexistent/b"), ("trace", "on", "p9"), ("save",), ("dance",)):
        done = lab.ctl(switch, *words, check=False)
        expect(done.returncode == 2 and len(done.stderr.splitlines()) == 1, "%s: one line and code 2: %s" % (words, done))
    expect(before == {what: lab.ctl(switch, "show", what) for what in before}, "nothing has changed")

    # Good ones take effect.
    lab.ctl(switch, "set", "degrade_rate", "1000")
    lab.ctl(switch, "set", "switches.v6_req", "true")
    expect(any(row["scope"] == "degrade" and row["limit_per_second"] == 1000 for row in lab.ctl(switch, "show", "limits")),
           "the degrade rate is set")
    lab.ctl(switch, "trace", "on", "p1")
    net.client("udhcpc", "p1", once=True, name="traced").wait()
    wait_for("the client is traced", lambda: "trace: port p1 vlan 1 02:71:00:00:00:01" in switch.log())
    lab.ctl(switch, "trace", "off")
    lab.ctl(switch, "set", "capabilities.instances", "2")  # restarts the module, keeps ports and bindings
    expect(lab.ctl(switch, "show", "summary")["module_starts"] > 1, "the module was started again")
    expect(len(bindings(lab, switch)) == 1, "the binding has outlived the restart")
    expect(lab.ctl(switch, "show", "stats")["service_client_forwarded"] >= 4, "and so have the service's counts")
    net.client("udhcpc", "p1", once=True, name="restarted").wait()
    lab.ctl(switch, "set", "live.bindings", lab.path("saved"))
    wait_for("the new file has what is bound", lambda: os.path.exists(lab.path("saved")))
    lab.ctl(switch, "save")
    expect(open(lab.path("saved")).read().count("\n") == 2, "saved on request")
    check_metrics(lab, switch, net.space)

    # A reload is the file again, wholly or not at all.
    text = open(config).read()
    lab.write("vexhost.toml", text.replace("v4_snooping = true", "v4_snooping = 7"))
    expect(lab.ctl(switch, "reload", check=False).returncode == 2, "a bad file is refused")
    lab.write("vexhost.toml", text + "[[port]]\nindex = 3\nname = \"nowhere\"\n")
    expect(lab.ctl(switch, "reload", check=False).returncode == 2, "a port that does not exist is refused")
    expect(any(r["scope"] == "degrade" for r in lab.ctl(switch, "show", "limits")), "and everything is as it was")
    lab.write("vexhost.toml", text + "[[port]]\nindex = 3\nname = \"p2\"\n")
    switch.send_signal(signal.SIGHUP)
    wait_for("the new port is there", lambda: any(r["port"] == "p2" for r in lab.ctl(switch, "show", "ports")))
    expect(not any(r["scope"] == "degrade" for r in lab.ctl(switch, "show", "limits")), "what was set by hand is gone")
    net.client("udhcpc", "p2", once=True).wait()

    pid = real_pid(switch)
    for ending in (".json", ""):
        lab.ctl(switch, "show", "channels", json_output=bool(ending))
    time.sleep(0.5)
    used, start = cpu_seconds(pid), time.monotonic()
    time.sleep(4)
    share = (cpu_seconds(pid) - used) / (time.monotonic() - start)
    expect(share < 0.02, "an idle switch uses %.1f%% of a CPU" % (100 * share))
    end(switch)


# ---- forwarding: what the switch does with everything else -----------------------------------------------------------

def scenario_forwarding(lab):
    """Bulk data with segmentation offload, tagged and untagged, and a link that goes away."""
    net = network.Network(lab)
    switch = lab.switch(net.space, net.ports())
    (space1, if1), (space2, if2) = net.clients["p1"], net.clients["p2"]
    lab.address(space1, if1, "10.80.0.1/24", "fd80::1/64")
    lab.address(space2, if2, "10.80.0.2/24", "fd80::2/64")
    lab.run("ping", "-c", "3", "-i", "0.2", "-W", "2", "10.80.0.2", namespace=space1)
    lab.run("ping", "-6", "-c", "3", "-i", "0.2", "-W", "2", "fd80::2", namespace=space1)  # ND through the service
    size = 30_000_000
    receive = ("import socket,hashlib;s=socket.create_server(('10.80.0.2',5000));print('up',flush=True);c=s.accept()[0];"
               "h=hashlib.sha256();n=0\nwhile b:=c.recv(1<<20):h.update(b);n+=len(b)\nprint(n,h.hexdigest(),flush=True)")
    send = ("import socket,hashlib;c=socket.create_connection(('10.80.0.2',5000));h=hashlib.sha256();n=0\n"
            "while n<%d:\n b=(b'%%015d\\n'%%n)*65536;c.sendall(b);h.update(b);n+=len(b)\nprint(n,h.hexdigest())" % size)
    receiver = lab.start(space2, [sys.executable, "-c", receive], "receiver")
    wait_for("the receiver listens", lambda: "up" in receiver.log())
    sent = lab.run(sys.executable, "-c", send, namespace=space1, timeout=60).strip()
    wait_for("all data arrived", lambda: sent in receiver.log(), 30)
    expect(port_row(lab, switch, "p1")["frames"] < size / 1500, "super-frames stayed whole")
    lab.address(net.clients["p4"][0], net.clients["p4"][1], "10.72.0.2/24")
    lab.run("ping", "-c", "2", "-i", "0.2", "-W", "2", network.TAGGED4_SERVER, namespace=net.clients["p4"][0])
    lab.run("ip", "link", "del", "e1", namespace=space1)  # the cable and with it p1 is gone
    lab.address(net.clients["p3"][0], "e3", "10.80.0.3/24")
    lab.run("ping", "-c", "2", "-i", "0.2", "-W", "2", "10.80.0.2", namespace=net.clients["p3"][0])
    used = cpu_seconds(real_pid(switch))
    time.sleep(2)
    expect(cpu_seconds(real_pid(switch)) - used < 0.1, "a port that is gone is not polled in a loop")
    expect("port p1: the interface is gone" in switch.log(), "and is named:\n" + switch.log())
    lab.cable(net.space, "p1", space1, "e1")
    wait_for("p1 is found again", lambda: "port p1: the interface is back" in switch.log())
    lab.address(space1, "e1", "10.80.0.1/24")
    lab.run("ping", "-c", "2", "-i", "0.2", "-W", "2", "10.80.0.2", namespace=space1)
    identity(lab, switch)
    end(switch)


# ---- prefix: delegated prefixes are bindings too ---------------------------------------------------------------------

def scenario_prefix(lab):
    net = network.Network(lab)
    saved = lab.path("bindings")
    switch = lab.switch(net.space, net.ports(), "--bindings", saved)
    net.start_servers(rogue=False)
    client = net.client("dhclient", "p1", 6, prefix=True, name="router")
    wait_for("the prefix is delegated", lambda: any("new_ip6_prefix" in event for event in client.events()), 20)
    client.wait()
    with open(lab.path("kea6.csv")) as file:
        leases = {row["address"]: row for row in csv.DictReader(file)}
    (prefix,) = [row for row in leases.values() if row["lease_type"] == "2"]
    delegated, table = "%s/%s" % (prefix["address"], prefix["prefix_len"]), bindings(lab, switch)
    expect({b["kind"] for b in table.values()} == {"ia_na", "ia_pd"}, "an address and a prefix are bound: %s" % table)
    expect(table[(delegated, 1)]["duid"] == prefix["duid"].replace(":", ""), "%s is its client's: %s" % (delegated, table))
    wait_for("both are saved", lambda: os.path.exists(saved) and open(saved).read().count("\n") == 3)
    switch.stop(signal.SIGKILL)
    switch = lab.switch(net.space, net.ports(), "--bindings", saved)
    expect(set(bindings(lab, switch)) == set(table), "both are back: %s" % bindings(lab, switch))
    client.stop(signal.SIGKILL)
    lab.run("dhclient", "-6", "-r", "-P", "-cf", "/dev/null", "-lf", lab.path("router.leases"), "-pf", lab.path("release.pid"),
            "-sf", lab.path("hook"), "e1", namespace=net.clients["p1"][0])
    wait_for("the prefix is released", lambda: (delegated, 1) not in bindings(lab, switch))
    expect(len(bindings(lab, switch)) == 1, "and the address is not: %s" % bindings(lab, switch))
    end(switch)


# ---- peer-link: what the partner of a pair sends is policed by kind --------------------------------------------------

def scenario_peer_link(lab):
    net = network.Network(lab)
    limits = {"DHCPv4 request": 20, "DHCPv4 reply": 20, "DHCPv6 request": 10, "DHCPv6 reply": 10}
    config = lab.write("pair.toml", "capabilities = {mlag_v4_rate = 20, mlag_v6_rate = 10}\n"
                       "switches = {v4_req = true, v4_reply = true, v4_snooping = true, v6_req = true, v6_reply = true, "
                       "v6_snooping = true, mlag_peerlink = true}\n")
    switch = lab.switch(net.space, ["p1", "up0:trusted", "r0:trusted,peer-link"], "--config", config)
    net.start_servers(rogue=False)

    def rows():
        return {row["scope"].removeprefix("peer-link "): row for row in lab.ctl(switch, "show", "limits")}

    each = 200
    for make in (forge.discover, lambda n: forge.offer(network.ROGUE4, n), forge.solicit,
                 lambda n: forge.advertise(network.ROGUE6, n)):
        forge.send(lab, net.rogue_space, "x0", [make(number) for number in range(each)])
    wait_for("all frames are counted", lambda: port_row(lab, switch, "r0")["frames"] >= 4 * each)
    table = rows()
    for kind, limit in limits.items():
        row = table[kind]
        expect(row["enabled"] and row["limit_per_second"] == limit, "%s has its limit: %s" % (kind, row))
        # The frames of a kind may fall into two seconds.
        expect(each - 2 * limit <= row["refused"] <= each - limit, "%s is policed alone: %s" % (kind, row))
    refused = sum(table[kind]["refused"] for kind in limits)
    expect(port_row(lab, switch, "r0")["refused"] == refused, "every refusal is the peer-link's: %d" % refused)
    expect(any(row["used_this_second"] for row in peer_link_use(lab, net, rows)), "what is used shows")

    lab.ctl(switch, "set", "switches.mlag_peerlink", "false")
    forge.send(lab, net.rogue_space, "x0", [forge.discover(number) for number in range(5)])
    wait_for("a peer-link that is off lets nothing through", lambda: rows().get("off", {}).get("refused") == 5)
    address, server = net.client("udhcpc", "p1", once=True).wait()
    expect(server == network.KEA4_SERVER, "a client of its own is served all the same: %s" % address)
    identity(lab, switch)
    end(switch)


def peer_link_use(lab, net, rows):
    """The budgets right behind a frame, in the middle of a second."""
    time.sleep((1.2 - time.time() % 1) % 1)
    forge.send(lab, net.rogue_space, "x0", [forge.discover(0)])
    return wait_for("a budget is in use", lambda: [row for row in rows().values() if row["used_this_second"]], 0.7)


# ---- unit: what the shipped systemd unit allows is enough --------------------------------------------------------------

def scenario_unit(lab):
    unit = os.path.join(SOURCE, "packaging", "vexhost@.service")
    absent = [name for name in ("systemd-analyze", "setpriv") if shutil.which(name) is None]
    if absent:
        print("SKIPPED: not installed: " + ", ".join(absent))
        return lab_module.SKIPPED
    net = network.Network(lab)
    os.chmod(lab.directory, 0o777)  # socket and bindings belong to another user
    sandbox = [sys.executable, os.path.join(SOURCE, "tests", "live", "sandbox.py"), unit]
    switch = lab.switch(net.space, net.ports(), "--bindings", lab.path("bindings"), "--metrics", "127.0.0.1:9969",
                        prefix=sandbox)
    status = open("/proc/%d/status" % real_pid(switch)).read()
    expect(re.search(r"^Seccomp:\t2$", status, re.M) and re.search(r"^Uid:\t65534\b", status, re.M), "it is confined: " + status)
    net.start_servers(rogue=False)
    net.client("udhcpc", "p1", once=True).wait()
    lab.ctl(switch, "set", "capabilities.instances", "2")
    lab.ctl(switch, "save")
    scrape(9969, lab, net.space)
    expect(len(bindings(lab, switch)) == 1, "the client is bound")
    end(switch)


# ---- examples: every file that is shipped runs ------------------------------------------------------------------------

def scenario_examples(lab):
    files = sorted(glob.glob(os.path.join(SOURCE, "examples", "*.toml")))
    expect(len(files) >= 4, "there are examples: %s" % files)
    for path in files:
        with open(path, "rb") as file:
            ports = [port["name"] for port in tomllib.load(file).get("port", [])]
        name = os.path.splitext(os.path.basename(path))[0]
        space, far = lab.namespace("x" + name), lab.namespace("y" + name)
        for number, port in enumerate(ports):
            lab.cable(space, port, far, "f%d" % number)
        # Paths of the example that belong to the machine are moved into the lab.
        switch = lab.switch(space, [], "--config", path, "--bindings", lab.path(name + ".bindings"), name=name)
        expect([row["port"] for row in lab.ctl(switch, "show", "ports")] == ports, "%s: its ports are up" % name)
        forge.send(lab, far, "f0", [forge.discover(number) for number in range(10)])
        wait_for("%s counts frames" % name, lambda s=switch: lab.ctl(s, "show", "summary")["frames"] >= 10)
        identity(lab, switch)
        end(switch)
        print("example %s runs with %d ports" % (name, len(ports)))


SCENARIOS = {
    "leases-1": lambda lab: scenario_leases(lab, 1),
    "leases-2": lambda lab: scenario_leases(lab, 2),
    "leases-4": lambda lab: scenario_leases(lab, 4),
    "flood": scenario_flood,
    "control": scenario_control,
    "forwarding": scenario_forwarding,
    "prefix": scenario_prefix,
    "peer-link": scenario_peer_link,
    "unit": scenario_unit,
    "examples": scenario_examples,
}


def main():
    name = sys.argv[2]
    reason = lab_module.missing()
    if reason:
        print("SKIPPED: " + reason)
        return lab_module.SKIPPED
    try:
        with lab_module.Lab(os.path.join(BIN, "vexhost")) as lab:
            start = time.monotonic()
            if SCENARIOS[name](lab) == lab_module.SKIPPED:
                return lab_module.SKIPPED
            print("%s: passed in %.1f s" % (name, time.monotonic() - start))
        return 0
    except LabError as error:
        print("%s: FAILED: %s" % (name, error))
        return 1


if __name__ == "__main__":
    sys.exit(main())
