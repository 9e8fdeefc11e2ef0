"""network.py - the network that `make live` and the end-to-end tests share: one switch, two servers, clients, a rogue.

        c1 -- p1 |        | up0 -- kea     DHCPv4 and DHCPv6, untagged
        c2 -- p2 | switch | up1 -- dnsmasq DHCPv4 and DHCPv6, VLAN 30, tagged
        c3 -- p3 |        |
   (30) c4 -- p4 |        | r0  -- rogue   a dnsmasq nobody asked for, on an untrusted port
"""
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
VLAN = 30
CLIENT_PORTS = ("p1", "p2", "p3", "p4")
KEA4, KEA6 = "10.71.0.0/24", "fd71::/64"
KEA4_SERVER, KEA6_SERVER = "10.71.0.1", "fd71::1"
TAGGED4_SERVER, TAGGED6_SERVER = "10.72.0.1", "fd72::1"
ROGUE4, ROGUE6 = "10.66.0.1", "fd66::1"


def client_mac(number):
    return "02:71:00:00:00:%02x" % number


class Network:
    """Namespaces and cables; servers and the switch are started by their own calls."""

    def __init__(self, lab):
        self.lab = lab
        self.space = lab.namespace("switch")
        self.clients = {}  # port -> (namespace, interface)
        for number, port in enumerate(CLIENT_PORTS, 1):
            self.clients[port] = self._host("c%d" % number, port, "e%d" % number, client_mac(number))
        self.kea_space, _ = self._host("kea", "up0", "k0", "02:71:00:00:01:01")
        self.tagged_space, _ = self._host("dnsmasq", "up1", "d0", "02:71:00:00:01:02", offload=False)
        self.rogue_space, _ = self._host("rogue", "r0", "x0", "02:66:00:00:00:66")
        self.tag(self.tagged_space, "d0", "d30")
        self.retag("p4")
        lab.address(self.kea_space, "k0", KEA4_SERVER + "/24", KEA6_SERVER + "/64")
        lab.address(self.tagged_space, "d30", TAGGED4_SERVER + "/24", TAGGED6_SERVER + "/64")
        lab.address(self.rogue_space, "x0", ROGUE4 + "/24", ROGUE6 + "/64")
        lab.quiet(self.space, *CLIENT_PORTS, "up0", "up1", "r0")

    def _host(self, name, port, interface, mac, offload=True):
        space = self.lab.namespace(name)
        self.lab.cable(self.space, port, space, interface, mac, offload)
        return space, interface

    def tag(self, space, outer, inner):
        """An interface whose frames go out of `outer` with the tag of the lab's VLAN."""
        lab = self.lab
        lab.run("ip", "link", "add", "name", inner, "type", "veth", "peer", "name", inner + "x", namespace=space)
        mac = lab.run("cat", "/sys/class/net/%s/address" % outer, namespace=space).strip()
        lab.run("ip", "link", "set", inner, "address", mac, namespace=space)
        lab.quiet(space, outer, inner + "x")
        lab.run("ip", "link", "set", outer, "promisc", "on", namespace=space)
        for end in (inner, inner + "x"):
            lab.run("ethtool", "-K", end, "tx", "off", "rx", "off", namespace=space)
            lab.run("ip", "link", "set", end, "up", namespace=space)
        lab.start(space, [sys.executable, os.path.join(HERE, "tagger.py"), outer, inner + "x", str(VLAN)],
                  "tagger-" + outer)

    def retag(self, port):
        space, interface = self.clients[port]
        self.tag(space, interface, "v" + interface)
        self.clients[port] = (space, "v" + interface)

    def ports(self, *trusted):
        return list(CLIENT_PORTS) + ["up0:trusted", "up1:trusted", "r0"]

    def start_servers(self, rogue=True):
        lab = self.lab
        lab.kea(self.kea_space, "k0", pool4=(KEA4, "10.71.0.100", "10.71.0.199"),
                pool6=(KEA6, "fd71::100", "fd71::1ff", "fd71:1::"))
        self.dnsmasq = lab.dnsmasq(self.tagged_space, "d30", ["10.72.0.100,10.72.0.199,10m", "fd72::100,fd72::1ff,64,10m"],
                                   "dnsmasq")
        if rogue:
            self.rogue = lab.dnsmasq(self.rogue_space, "x0", ["10.66.0.100,10.66.0.199,10m", "fd66::100,fd66::1ff,64,10m"],
                                     "rogue", ["--enable-ra", "--ra-param=x0,high,4,1800"])

    def client(self, program, port, version=4, **options):
        space, interface = self.clients[port]
        return self.lab.client(program, space, interface, version, **options)
