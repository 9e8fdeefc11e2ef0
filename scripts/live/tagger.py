"""tagger.py - gives an interface VLAN-tagged frames where the kernel has no 802.1Q devices.

In:  an outer interface whose frames carry the tag, an inner one without, the VLAN id. Out: every frame of the outer
interface with that tag goes out of the inner one without it, and the other way round. Ends with its process.
"""
import select
import socket
import struct
import sys

ETH_P_ALL, SOL_PACKET, PACKET_AUXDATA, PACKET_IGNORE_OUTGOING = 3, 263, 8, 23
VLAN_VALID = 1 << 4
AUXDATA = struct.Struct("IIIHHHH")  # struct tpacket_auxdata


def open_port(name):
    port = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    port.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
    port.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
    port.bind((name, 0))
    return port


def receive(port):
    """A frame with its outer tag, which the kernel has put beside it, back in place."""
    frame, control, _, _ = port.recvmsg(65536, socket.CMSG_SPACE(AUXDATA.size))
    for level, kind, data in control:
        if (level, kind) == (SOL_PACKET, PACKET_AUXDATA):
            status, _, _, _, _, tci, tpid = AUXDATA.unpack(data[:AUXDATA.size])
            if status & VLAN_VALID:
                return frame[:12] + struct.pack("!HH", tpid or 0x8100, tci) + frame[12:]
    return frame


def main():
    outer, inner, vlan = open_port(sys.argv[1]), open_port(sys.argv[2]), int(sys.argv[3])
    while True:
        for port in select.select([outer, inner], [], [])[0]:
            frame = receive(port)
            if port is inner:
                outer.send(frame[:12] + struct.pack("!HH", 0x8100, vlan) + frame[12:])
            elif frame[12:14] == b"\x81\x00" and struct.unpack("!H", frame[14:16])[0] & 0xFFF == vlan:
                inner.send(frame[:12] + frame[16:])


if __name__ == "__main__":
    main()
