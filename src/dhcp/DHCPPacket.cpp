// The BOOTP/DHCP message: the one DHCPINFORM the library sends, its wire
// form, and the parse of whatever comes back.
#include <winsock2.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dhcp/dhcp.h"
#include "trace/Clock.h"
#include "trace/tracefunc.h"

namespace {

const unsigned char kMagicCookie[4] = {0x63, 0x82, 0x53, 0x63};

// Option 53 (message type) = 8 (DHCPINFORM), option 55 (parameter request
// list) asking for 252 alone, then the end option. Nothing else is sent: no
// client identifier, no host name.
const unsigned char kInformOptions[] = {0x63, 0x82, 0x53, 0x63, 0x35, 0x01, 0x08,
                                        0x37, 0x01, 0xFC, 0xFF};

const uint8_t kOptionPad = 0;
const uint8_t kOptionEnd = 255;

void Put32(std::string &out, uint32_t value) {
    out.push_back(static_cast<char>(value >> 24));
    out.push_back(static_cast<char>(value >> 16));
    out.push_back(static_cast<char>(value >> 8));
    out.push_back(static_cast<char>(value));
}

void Put16(std::string &out, uint16_t value) {
    out.push_back(static_cast<char>(value >> 8));
    out.push_back(static_cast<char>(value));
}

}  // namespace

std::string DhcpHexDump(const unsigned char *bytes, size_t length) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * 3);
    for (size_t i = 0; i < length; ++i) {
        if (i) text.push_back(' ');
        text.push_back(kDigits[bytes[i] >> 4]);
        text.push_back(kDigits[bytes[i] & 0x0F]);
    }
    return text;
}

bool Grab8(const unsigned char *&cursor, int &remaining, uint8_t &out) {
    tracefunc tf(__LINE__, "dhcp", "Grab8");
    if (remaining < 1) {
        tf << "Invalid buffer length:  " << remaining << endtrace;
        return false;
    }
    out = cursor[0];
    cursor += 1;
    remaining -= 1;
    return true;
}

bool Grab16(const unsigned char *&cursor, int &remaining, uint16_t &out) {
    tracefunc tf(__LINE__, "dhcp", "Grab16");
    if (remaining < 2) {
        tf << "Invalid buffer length:  " << remaining << endtrace;
        return false;
    }
    out = static_cast<uint16_t>((cursor[0] << 8) | cursor[1]);
    cursor += 2;
    remaining -= 2;
    return true;
}

bool Grab32(const unsigned char *&cursor, int &remaining, uint32_t &out) {
    tracefunc tf(__LINE__, "dhcp", "Grab32");
    if (remaining < 4) {
        tf << "Invalid buffer length:  " << remaining << endtrace;
        return false;
    }
    out = (static_cast<uint32_t>(cursor[0]) << 24) | (static_cast<uint32_t>(cursor[1]) << 16) |
          (static_cast<uint32_t>(cursor[2]) << 8) | static_cast<uint32_t>(cursor[3]);
    cursor += 4;
    remaining -= 4;
    return true;
}

bool GrabStr(const unsigned char *&cursor, int &remaining, int length, unsigned char *out) {
    tracefunc tf(__LINE__, "dhcp", "GrabStr");
    if (length < 0 || remaining < length) {
        tf << "Invalid buffer length:  " << remaining << " need at least " << length << endtrace;
        return false;
    }
    if (length > 0) std::memcpy(out, cursor, static_cast<size_t>(length));
    cursor += length;
    remaining -= length;
    return true;
}

void DHCPPacket::Clear() {
    op = htype = hlen = hops = 0;
    xid = 0;
    secs = flags = 0;
    ciaddr = yiaddr = siaddr = giaddr = 0;
    std::memset(chaddr, 0, sizeof chaddr);
    std::memset(sname, 0, sizeof sname);
    std::memset(file, 0, sizeof file);
    std::memset(options, 0, sizeof options);
}

bool DHCPPacket::CreateInformPacket(bool force, const std::string &destination) {
    tracefunc tf(__LINE__, "dhcp", "DHCPPacket::CreateInformPacket");

    uint32_t target = inet_addr(destination.c_str());
    if (target == INADDR_NONE) {
        const hostent *entry = gethostbyname(destination.c_str());
        if (entry && entry->h_addrtype == AF_INET && entry->h_length == 4 && entry->h_addr_list &&
            entry->h_addr_list[0])
            std::memcpy(&target, entry->h_addr_list[0], 4);
    }

    std::srand(static_cast<unsigned>(Clock().time(nullptr)));
    op = 1;
    htype = 1;
    hops = 0;
    // msvcrt's rand yields 15 bits, so bits 15 and 31 of the xid are always
    // clear; replies are matched on the whole value all the same.
    const uint32_t high = static_cast<uint32_t>(std::rand());
    const uint32_t low = static_cast<uint32_t>(std::rand());
    xid = (high << 16) | low;
    secs = 0;
    flags = 0;

    if (!GetNetworkInfo(*this, force, target)) {
        tf << "GetNetworkInfo failed...stopping" << endtrace;
        return false;
    }
    yiaddr = siaddr = giaddr = 0;
    std::memcpy(options, kInformOptions, sizeof kInformOptions);

    std::string wire;
    if (!GetBuffer(wire)) {
        tf << "GetBuffer failed" << endtrace;
        return false;
    }
    tf << "Buffer contents:  "
       << DhcpHexDump(reinterpret_cast<const unsigned char *>(wire.data()), wire.size())
       << endtrace;
    return true;
}

bool DHCPPacket::GetBuffer(std::string &out) const {
    out.clear();
    out.reserve(DHCP_PACKET_SIZE);
    out.push_back(static_cast<char>(op));
    out.push_back(static_cast<char>(htype));
    out.push_back(static_cast<char>(hlen));
    out.push_back(static_cast<char>(hops));
    Put32(out, xid);
    Put16(out, secs);
    Put16(out, flags);
    Put32(out, ciaddr);
    Put32(out, yiaddr);
    Put32(out, siaddr);
    Put32(out, giaddr);
    out.append(reinterpret_cast<const char *>(chaddr), sizeof chaddr);
    out.append(reinterpret_cast<const char *>(sname), sizeof sname);
    out.append(reinterpret_cast<const char *>(file), sizeof file);
    out.append(reinterpret_cast<const char *>(options), sizeof options);
    return true;
}

bool DHCPPacket::SetBuffer(const unsigned char *bytes, int length) {
    tracefunc tf(__LINE__, "dhcp", "DHCPPacket::SetBuffer (parse)");
    if (length > 0)
        tf << "Buffer contents:  " << DhcpHexDump(bytes, static_cast<size_t>(length)) << endtrace;

    const unsigned char *cursor = bytes;
    int remaining = length;
    if (!Grab8(cursor, remaining, op) || !Grab8(cursor, remaining, htype) ||
        !Grab8(cursor, remaining, hlen) || !Grab8(cursor, remaining, hops) ||
        !Grab32(cursor, remaining, xid) || !Grab16(cursor, remaining, secs) ||
        !Grab16(cursor, remaining, flags) || !Grab32(cursor, remaining, ciaddr) ||
        !Grab32(cursor, remaining, yiaddr) || !Grab32(cursor, remaining, siaddr) ||
        !Grab32(cursor, remaining, giaddr) ||
        !GrabStr(cursor, remaining, sizeof chaddr, chaddr) ||
        !GrabStr(cursor, remaining, sizeof sname, sname) ||
        !GrabStr(cursor, remaining, sizeof file, file)) {
        tf << "Not enough buffer space...failed" << endtrace;
        return false;
    }
    // Option bytes beyond the end of a short datagram keep what the packet
    // held before; a datagram longer than the wire form is cut.
    if (remaining > 0) {
        const size_t available = static_cast<size_t>(remaining);
        const size_t count = available < sizeof options ? available : sizeof options;
        std::memcpy(options, cursor, count);
    }
    return true;
}

bool DHCPPacket::GetStringOption(uint8_t code, std::string &value) const {
    tracefunc tf(__LINE__, "dhcp", "DHCPPacket::GetStringOption");
    if (std::memcmp(options, kMagicCookie, sizeof kMagicCookie) != 0) {
        tf << "DHCPPacket option buffer didn't contain magic option" << endtrace;
        return false;
    }
    // Positions count within the option area; the walk checks only where
    // each option starts, as the wire format's readers always have.
    size_t pos = sizeof kMagicCookie;
    while (pos < DHCP_OPTIONS_SIZE) {
        const uint8_t option = options[pos];
        if (option == kOptionPad) {
            tf << "Found DHCPOptionPadding...continuing" << endtrace;
            ++pos;
            continue;
        }
        if (option == kOptionEnd) {
            tf << "Found option buffer terminator" << endtrace;
            return false;
        }
        // The length byte is trusted, but never beyond this packet's own
        // storage: a length byte past the end ends the walk, and data that
        // claims to run past the option area is cut at its end.
        if (pos + 1 >= DHCP_OPTIONS_SIZE) return false;
        const size_t length = options[pos + 1];
        const size_t start = pos + 2;
        if (option == code) {
            const size_t available = start < DHCP_OPTIONS_SIZE ? DHCP_OPTIONS_SIZE - start : 0;
            const size_t taken = length < available ? length : available;
            value.assign(reinterpret_cast<const char *>(options) + start, taken);
            tf << "Found string option for " << static_cast<int>(code) << ":  " << value
               << endtrace;
            return true;
        }
        pos = start + length;
    }
    return false;
}
