"""forge.py - DHCP messages made by hand: what real programs do not send.

In:  numbers that tell messages apart. Out: whole Ethernet frames, and their way into a namespace.
"""
import os
import socket
import struct
import sys
import time

BROADCAST = b"\xff" * 6
ETH_P_ALL = 3


def _checksum(data):
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack("!%dH" % (len(data) // 2), data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def _udp4(source_mac, source, target, source_port, target_port, payload):
    udp = struct.pack("!HHHH", source_port, target_port, 8 + len(payload), 0) + payload
    head = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0, socket.inet_aton(source),
                       socket.inet_aton(target))
    head = head[:10] + struct.pack("!H", _checksum(head)) + head[12:]
    return BROADCAST + source_mac + b"\x08\x00" + head + udp


def _bootp(op, xid, chaddr, yiaddr, options):
    fixed = struct.pack("!BBBBIHH4s4s4s4s16s64s128s", op, 1, 6, 0, xid, 0, 0x8000, b"\0" * 4, socket.inet_aton(yiaddr),
                        b"\0" * 4, b"\0" * 4, chaddr, b"", b"")
    return fixed + b"\x63\x82\x53\x63" + options + b"\xff"


def _udp6(source_mac, target_mac, source, target, source_port, target_port, payload):
    ends = socket.inet_pton(socket.AF_INET6, source) + socket.inet_pton(socket.AF_INET6, target)
    udp = struct.pack("!HHHH", source_port, target_port, 8 + len(payload), 0) + payload
    checksum = _checksum(ends + struct.pack("!IHBB", len(udp), 0, 0, 17) + udp) or 0xFFFF
    udp = udp[:6] + struct.pack("!H", checksum) + udp[8:]
    return target_mac + source_mac + b"\x86\xdd" + struct.pack("!IHBB", 0x60000000, len(udp), 17, 64) + ends + udp


def _option6(code, data):
    return struct.pack("!HH", code, len(data)) + data


def mac(number, prefix=0x0273):
    return struct.pack("!HI", prefix, number)


def discover(number):
    return _udp4(mac(number), "0.0.0.0", "255.255.255.255", 68, 67,
                 _bootp(1, 0x73000000 + number, mac(number), "0.0.0.0", b"\x35\x01\x01"))


def offer(server, number, kind=2):
    """An offer (2) or acknowledgement (5) that nobody asked for, to everybody."""
    options = bytes((0x35, 1, kind)) + b"\x36\x04" + socket.inet_aton(server) + b"\x33\x04\x00\x00\x0e\x10"
    return _udp4(mac(number, 0x0266), server, "255.255.255.255", 67, 68,
                 _bootp(2, 0x66000000 + number, mac(number), "10.66.0.%d" % (number % 250), options))


def solicit(number):
    message = struct.pack("!I", 1 << 24 | number) + _option6(1, b"\0\x03\0\x01" + mac(number))
    return _udp6(mac(number), b"\x33\x33\0\x01\0\x02", "fe80::73:%x" % number, "ff02::1:2", 546, 547, message)


def advertise(server, number):
    message = struct.pack("!I", 2 << 24 | number) + _option6(1, b"\0\x03\0\x01" + mac(number))
    message += _option6(2, b"\0\x03\0\x01" + mac(0, 0x0266))
    return _udp6(mac(0, 0x0266), mac(number), server, "fe80::73:%x" % number, 547, 546, message)


def send(lab, namespace, interface, frames, per_second=0):
    """Sends the frames out of an interface of a namespace, at once or at a pace; returns when all are sent."""
    lab.write("frames", "\n".join(frame.hex() for frame in frames))
    lab.run(sys.executable, os.path.abspath(__file__), interface, lab.path("frames"), str(per_second),
            namespace=namespace, timeout=60)


def main():
    interface, path, per_second = sys.argv[1], sys.argv[2], float(sys.argv[3])
    port = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    port.bind((interface, 0))
    with open(path) as frames:
        for line in frames:
            port.send(bytes.fromhex(line))
            if per_second:
                time.sleep(1 / per_second)


if __name__ == "__main__":
    main()
