#!/usr/bin/env python3
"""demo.py - `make live`: a DHCP-snooping switch between real clients, real servers and a rogue one.

In:  the vexhost program. Out: who got which lease from whom, the bindings, what was refused. Undoes all it made.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import forge  # noqa: E402
import lab as lab_module  # noqa: E402
from network import Network, ROGUE4  # noqa: E402

CLIENTS = [("dhclient", "p1", 4), ("udhcpc", "p2", 4), ("dhcpcd", "p3", 4), ("udhcpc", "p4", 4),
           ("dhclient", "p1", 6), ("dhcpcd", "p3", 6), ("dhclient", "p4", 6)]


def main():
    vexhost = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/release/bin/vexhost")
    reason = lab_module.missing()
    if reason:
        print("make live: cannot run here: " + reason)
        return 1
    with lab_module.Lab(vexhost) as lab:
        print("building namespaces, starting the switch, Kea, dnsmasq and a rogue dnsmasq ...")
        net = Network(lab)
        switch = lab.switch(net.space, net.ports(), "--bindings", lab.path("bindings"))
        net.start_servers()
        lab.ctl(switch, "set", "snooping.interface.2.v4.rate", "20")
        lab.ctl(switch, "set", "snooping.interface.2.v4.enable", "true")
        clients = [(program, port, version, net.client(program, port, version)) for program, port, version in CLIENTS]
        print("\n%-10s %-5s %-6s %-16s %s" % ("client", "port", "family", "lease", "from"))
        for program, port, version, client in clients:
            address, server = client.wait(30)
            print("%-10s %-5s %-6s %-16s %s" % (program, port, "IPv%d" % version, address, server))
        # What an attacker does: offers to nobody in particular, and more requests than port p2 may send.
        forge.send(lab, net.rogue_space, "x0", [forge.offer(ROGUE4, number) for number in range(20)])
        forge.send(lab, net.clients["p2"][0], net.clients["p2"][1], [forge.discover(number) for number in range(200)])
        for title, words in (("bindings", ("show", "bindings")), ("ports", ("show", "ports")),
                             ("limits", ("show", "limits")), ("summary", ("show", "summary"))):
            print("\n%s:\n%s" % (title, lab.ctl(switch, *words, json_output=False)), end="")
        code = switch.stop()
        print("\nthe switch's log:\n" + switch.log())
        return code


if __name__ == "__main__":
    try:
        sys.exit(main())
    except lab_module.LabError as error:
        print("make live: %s" % error, file=sys.stderr)
        sys.exit(1)
