// The bytes of IGMP and MLD: what frames and reports tell, and that nothing is read past their end.
#include "dpm_ipmc_report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

// Hexadecimal digits, with blanks anywhere; "*NN" makes NN of the byte before it.
Bytes bytes_of(const std::string &text) {
    Bytes bytes;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t taken = 2;
        if (text[at] == ' ')
            taken = 1;
        else if (text[at] == '*') {
            bytes.insert(bytes.end(), std::stoul(text.substr(at + 1, 2)) - 1,
                         std::uint8_t(bytes.back()));
            taken = 3;
        } else
            bytes.push_back(std::uint8_t(std::stoi(text.substr(at, 2), nullptr, 16)));
        at += taken;
    }
    return bytes;
}

// A copy in a block of its very size: a sanitizer sees a read past it.
std::unique_ptr<std::uint8_t[]> exact(const Bytes &bytes) {
    auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return copy;
}

// "4 at 34", "6 at 62", or "" for a frame that is none of ours.
std::string parsed(const Bytes &frame) {
    std::uint32_t offset = 0, family = 0;
    if (dpm_ipmc_packet_parser(exact(frame).get(), std::uint32_t(frame.size()), &offset, &family))
        return "";
    return (family == 1 ? "4 at " : "6 at ") + std::to_string(offset);
}

// "3 224.1.1.1 {10.0.0.1} | ..."
std::string records(const Bytes &message, std::uint32_t family) {
    const auto copy = exact(message);
    dpm::record_reader reader(copy.get(), std::uint32_t(message.size()), family);
    std::string text;
    for (dpm::group_record record; reader.next(record);) {
        text += (text.empty() ? "" : " | ") + std::to_string(int(record.type)) + " " +
                dpm::address_text(record.group).c_str() + " {";
        for (unsigned i = 0; i < record.source_count; i++)
            text += std::string(i ? " " : "") + dpm::address_text(record.sources[i]).c_str();
        text += "}";
    }
    return text;
}

const std::string macs = "00*12", ip4 = "46000000 00000000 0102 00*10 94040000";
const std::string ip6 = "60000000 000000ff 00*32", hop = "3a00 0502 0000 0100";
const std::string igmp = "16000000 e0010101", mld = "83000000 00000000 ff02 00*13 05";

const struct {
    std::string frame, told;
} frames[] = {
    {macs + "0800" + ip4 + igmp, "4 at 38"},
    {macs + "0800 45000000 00000000 0102 00*10" + igmp, "4 at 34"},
    {macs + "0800 44000000 00000000 0102 00*10" + igmp, ""}, // a header of 16 bytes
    {macs + "0800 4f000000 00000000 0102 00*10", "4 at 74"}, // the hook looks at the length
    {macs + "0800 45000000 00000000 0111 00*10" + igmp, ""}, // UDP
    {macs + "86dd 45000000 00000000 0102 00*10" + igmp, "4 at 34"},
    {macs + "8100 0064 0800" + ip4 + igmp, "4 at 42"},
    {macs + "88a8 0001 8100 0002 8100 0003 0800" + ip4 + igmp, "4 at 50"},
    {macs + "9100 0001 86dd 60000000 00003aff 00*32" + mld, "6 at 58"},
    {macs + "0806" + ip4 + igmp, ""},
    {macs + "8100 0001 8100 0001 8100 0001 8100", ""}, // tags to the end
    {macs + "86dd" + ip6 + hop + mld, "6 at 62"},
    {macs + "86dd" + ip6 + hop + "8f", "6 at 62"},
    {macs + "86dd" + ip6 + hop + "82" + mld, ""},            // a query
    {macs + "86dd" + ip6 + "3a01 00*14" + mld, "6 at 70"},   // a hop-by-hop header of 16
    {macs + "86dd" + ip6 + "3aff 00*06" + mld, ""},           // one past the end
    {macs + "86dd" + ip6 + "1100 00*06" + mld, ""},           // UDP behind it
    {macs + "86dd" + ip6 + "0000 00*06" + hop + mld, ""},     // two of them
    {macs + "86dd 60000000 000011ff 00*32" + mld, ""},       // UDP
    {macs + "0800 50000000 00000000 0102 00*10" + igmp, ""}, // IP version 5
    {macs, ""},
    {"", ""},
};

const std::string head = "22000000 0000 00", source = "0a00 0001 0a00 0002";
const std::string report4 =
    head + "03 04000000 e0010101  03000002 e0010102" + source + "06000001 e0010103 0a000003";
const std::string group6 = "ff05 00*13", address6 = "2001 0db8 00*11";
const std::string report6 =
    "8f000000 0000 0002 02000000" + group6 + "01 05000001" + group6 + "02" + address6 + "01";

const struct {
    unsigned family;
    std::string message, told;
} reports[] = {
    {1, report4, "4 224.1.1.1 {} | 3 224.1.1.2 {10.0.0.1 10.0.0.2} | 6 224.1.1.3 {10.0.0.3}"},
    {2, report6, "2 ff05::1 {} | 5 ff05::2 {2001:db8::1}"},
    // Ten sources: eight are taken, and the next record is found behind all of them.
    {1, head + "02 0100000a e0010101 0a000001 01*36 02000000 e0010102",
     "1 224.1.1.1 {10.0.0.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1 1.1.1.1} | "
     "2 224.1.1.2 {}"},
    {1, head + "01 01000009 e0010101 0a*32", ""}, // nine that are eight
    {1, head + "02 04000000 e0010101 0300ffff e0010102 00*64", "4 224.1.1.1 {}"},
    {1, "22000000 0000 ffff 04000000 e0010101", "4 224.1.1.1 {}"},
    {1, head + "03 04000000 e0010101 07000000 e0010102 04000000 e0010103", "4 224.1.1.1 {}"},
    {1, head + "02 00000000 e0010101 04000000 e0010102", ""},
    {1, head + "02 04010000 e0010101 ffffffff 04000000 e0010102", "4 224.1.1.1 {}"}, // auxiliary
    {1, head + "00 04000000 e0010101", ""},
};

TEST(MulticastBytes, OfFramesTellWhereTheMessageBegins) {
    for (const auto &[frame, told] : frames)
        EXPECT_EQ(parsed(bytes_of(frame)), told) << frame;
}

TEST(MulticastBytes, OfReportsTellTheirRecords) {
    for (const auto &[family, message, told] : reports)
        EXPECT_EQ(records(bytes_of(message), family), told) << message;
}

// Every length, and every byte wrong in turn: what is told then is a part of the whole, or anything
// that does not read outside.
TEST(MulticastBytes, AreNotReadPastTheirEnd) {
    for (const auto &[frame, told] : frames)
        for (Bytes bytes = bytes_of(frame); !bytes.empty(); bytes.pop_back()) {
            const std::string rest = parsed(bytes);
            EXPECT_TRUE(rest.empty() || rest == told) << frame << " cut to " << bytes.size();
            for (std::uint8_t &byte : bytes)
                for (const std::uint8_t wrong : {0x00, 0x01, 0x3a, 0x4f, 0x7f, 0xff}) {
                    const std::uint8_t right = std::exchange(byte, wrong);
                    (void)parsed(bytes);
                    byte = right;
                }
        }
    for (const auto &[family, message, told] : reports)
        for (Bytes bytes = bytes_of(message); !bytes.empty(); bytes.pop_back())
            EXPECT_TRUE(told.starts_with(records(bytes, family))) << message << bytes.size();
}

} // namespace
