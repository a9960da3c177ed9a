#!/usr/bin/env python3
"""Checks the DHCPINFORM captured on the lab wire (a tcpdump file) byte for
byte: a 548-byte BOOTREQUEST from port 68 to port 67 of 255.255.255.255,
every byte as the wire format fixes it, apart from the xid and the client's
addresses (ciaddr must be the client's address, chaddr the frame's source
hardware address). Also checks that a reply with option 252 went back.

Usage: check-inform.py CAPTURE CLIENT_IP
       check-inform.py --count CAPTURE   (the number of packets so far)
"""
import socket
import struct
import sys

OPTIONS = bytes.fromhex("638253633501083701fcff")


def packets(path):
    with open(path, "rb") as f:
        header = f.read(24)
        magic = struct.unpack("<I", header[:4])[0]
        endian = "<" if magic in (0xA1B2C3D4, 0xA1B23C4D) else ">"
        linktype = struct.unpack(endian + "I", header[20:24])[0]
        if linktype != 1:
            raise SystemExit("unexpected link type %d" % linktype)
        while True:
            record = f.read(16)
            if len(record) < 16:
                return
            _, _, caplen, _ = struct.unpack(endian + "IIII", record)
            yield f.read(caplen)


def udp(frame):
    if len(frame) < 14 or frame[12:14] != b"\x08\x00":
        return None
    ip = frame[14:]
    ihl = (ip[0] & 0x0F) * 4
    if ip[9] != 17:
        return None
    src, dst = ip[12:16], ip[16:20]
    sport, dport, length = struct.unpack("!HHH", ip[ihl:ihl + 6])
    return frame[6:12], src, dst, sport, dport, ip[ihl + 8:ihl + length]


def main():
    if sys.argv[1] == "--count":
        try:
            print(sum(1 for _ in packets(sys.argv[2])))
        except (OSError, struct.error):
            print(0)
        return 0
    path, client = sys.argv[1], socket.inet_aton(sys.argv[2])
    informs, replies, errors = 0, 0, []
    for frame in packets(path):
        u = udp(frame)
        if not u:
            continue
        mac, src, dst, sport, dport, payload = u
        if dport == 67:
            informs += 1
            if (sport, src, dst) != (68, client, b"\xff\xff\xff\xff"):
                errors.append("INFORM addresses: %s:%d -> %s:%d" % (
                    socket.inet_ntoa(src), sport, socket.inet_ntoa(dst), dport))
            expected = bytearray(548)
            expected[0:4] = b"\x01\x01\x06\x00"
            if len(payload) >= 8:
                expected[4:8] = payload[4:8]  # xid
            expected[12:16] = client
            expected[28:34] = mac
            expected[236:236 + len(OPTIONS)] = OPTIONS
            if bytes(payload) != bytes(expected):
                diff = [i for i in range(max(len(payload), 548))
                        if i >= len(payload) or i >= 548 or payload[i] != expected[i]]
                errors.append("INFORM of %d bytes differs at offsets %s" % (len(payload), diff[:16]))
        elif dport == 68 and sport == 67:
            if b"\xfc" in payload[240:]:
                replies += 1
    if informs == 0:
        errors.append("no DHCPINFORM captured")
    if replies == 0:
        errors.append("no reply to port 68 captured")
    for e in errors:
        print("check-inform: " + e)
    print("check-inform: %d INFORM(s) byte-exact, %d repl(ies) captured" % (informs, replies)
          if not errors else "check-inform: FAILED")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
