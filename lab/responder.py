#!/usr/bin/env python3
"""A programmable DHCP responder for the lab: the replies a real server does
not send. It listens on port 67 of the server namespace, writes every
request it receives to responder.log ("rx <source ip:port> <destination ip>
<hex>") and answers each request
as the first line of responder.mode says, read afresh for every request:
a comma-separated list of replies sent in order, each one of

  url        DHCPACK, same xid, option 252 = the lab URL
  nak        DHCPNAK, same xid, option 252 = the lab URL
  nourl      DHCPACK, same xid, no option 252
  otherxid   DHCPACK with option 252 but another xid
  zeros      DHCPACK, same xid, option 252 with embedded zero bytes
  long       DHCPACK, same xid, option 252 of 255 bytes
  short      the first 100 bytes of a DHCPACK with the same xid
  flood:S    unrelated packets (other xids, odd lengths) for S seconds
  silent     nothing

Usage: responder.py LAB_DIR URL
"""
import os
import random
import socket
import struct
import sys
import time

COOKIE = b"\x63\x82\x53\x63"


def reply(request, xid=None, msgtype=5, url=None):
    """A BOOTREPLY built on the request's header."""
    if xid is None:
        xid = request[4:8]
    else:
        xid = struct.pack("!I", xid)
    header = bytearray(request[:236])
    header[0] = 2  # BOOTREPLY
    header[4:8] = xid
    options = bytearray(COOKIE)
    options += bytes([53, 1, msgtype])
    options += bytes([54, 4]) + socket.inet_aton(SERVER_IP)
    if url is not None:
        options += bytes([252, len(url)]) + url
    options += b"\xff"
    return bytes(header) + bytes(options)


def other_xid(request):
    (xid,) = struct.unpack("!I", request[4:8])
    return (xid + 1) & 0xFFFFFFFF


def answer(sock, request, peer, item, url):
    if item == "url":
        sock.sendto(reply(request, url=url), peer)
    elif item == "nak":
        sock.sendto(reply(request, msgtype=6, url=url), peer)
    elif item == "nourl":
        sock.sendto(reply(request), peer)
    elif item == "otherxid":
        sock.sendto(reply(request, xid=other_xid(request), url=url), peer)
    elif item == "zeros":
        sock.sendto(reply(request, url=b"http://a\x00b/\x00wpad.dat"), peer)
    elif item == "long":
        text = (b"http://" + b"w" * 255)[:255]
        sock.sendto(reply(request, url=text), peer)
    elif item == "short":
        sock.sendto(reply(request, url=url)[:100], peer)
    elif item.startswith("flood:"):
        end = time.monotonic() + float(item.split(":", 1)[1])
        rng = random.Random(7)
        xid = other_xid(request)
        while time.monotonic() < end:
            kind = rng.randrange(3)
            if kind == 0:
                packet = reply(request, xid=xid, url=url)
            elif kind == 1:
                packet = bytes(rng.randrange(256) for _ in range(rng.randrange(0, 236)))
            else:
                packet = reply(request, xid=xid)[: rng.randrange(8, 300)]
            sock.sendto(packet, peer)
            xid = (xid + 1) & 0xFFFFFFFF
            time.sleep(0.02)
    elif item == "silent":
        pass
    else:
        raise SystemExit("responder: unknown mode item %r" % item)


def main():
    global SERVER_IP
    lab_dir, url = sys.argv[1], sys.argv[2].encode()
    SERVER_IP = os.environ.get("ROUTVANE_LAB_SERVER", "10.77.0.1")
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    # The destination address of each request (struct in_pktinfo: ifindex,
    # local address, header destination); IP_PKTINFO is 8 on Linux.
    sock.setsockopt(socket.IPPROTO_IP, getattr(socket, "IP_PKTINFO", 8), 1)
    sock.bind(("0.0.0.0", 67))
    log = open(os.path.join(lab_dir, "responder.log"), "a", buffering=1)
    while True:
        data, ancillary, _, peer = sock.recvmsg(4096, 64)
        destination = "?"
        for level, kind, value in ancillary:
            if level == socket.IPPROTO_IP and len(value) >= 12:
                destination = socket.inet_ntoa(value[8:12])
        log.write("rx %s:%d %s %s\n" % (peer[0], peer[1], destination, data.hex()))
        if len(data) < 236:
            continue
        with open(os.path.join(lab_dir, "responder.mode")) as f:
            mode = (f.readline().strip() or "silent").split(",")
        # Replies go back to where the request came from: the client's own
        # address and port 68.
        for item in mode:
            answer(sock, data, peer, item.strip(), url)


if __name__ == "__main__":
    main()
