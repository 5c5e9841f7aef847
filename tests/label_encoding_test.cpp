// Label entries byte by byte as the chip is asked for them, with what the settings make of TTL and
// EXP.

#include "dpm_vpn_encaps.h"
#include "platform/nsm.h"
#include "support/shelf.h"

#include <cstring>

namespace {

// A record field by field, without the zeros at a field's end.
std::string fields_of(const std::vector<std::uint8_t> &record) {
    const std::vector<unsigned> heads[] = {{4, 4, 4, 4, 4, 4, 6, 2, 2, 1, 1, 16, 1, 23},
                                           {4, 4, 4, 6, 2, 2, 1, 1, 16, 1, 1, 2, 16, 4}};
    const auto &head = heads[record.size() == sizeof(dal_ftn_request)];
    std::string fields;
    for (std::size_t at = 0, number = 0; at < record.size(); ++number) {
        const unsigned bytes = number < head.size() ? head[number] : 4; // a label's three have 4
        std::string field;
        for (unsigned i = 0; i < bytes; ++i, ++at) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02x", record[at]);
            field += digits;
        }
        while (field.ends_with("00"))
            field.resize(field.size() - 2);
        fields += (number == 0             ? ""
                   : number == head.size() ? " | "
                                           : " ") +
                  (field.empty() ? "." : field);
    }
    return fields;
}

class Encoding : public rig::LoneShelf {
protected:
    // No table stands behind what is asked, and what the chip makes of it is not looked at.
    void TearDown() override {
        set(0, 0, 0);
        allow().chip_differs = 1;
        allow().mistakes = unsigned(master().chip.mistakes());
        LoneShelf::TearDown();
    }
    static void set(int ttl, int exp, int value) {
        g_mpls_ttl_module = ttl, g_mpls_exp_module = exp, g_mpls_exp_value = value;
    }
    std::string asked(int result) {
        (void)result; // what the chip makes of it is not asked here
        return fields_of(master().chip.label_record);
    }
    std::string add(const dpm_ftn &entry) {
        return asked(dpm_hw_driver_mpls_ftn_add(&entry, out, out, ~0u));
    }
    std::string add(const dpm_ilm &entry) {
        return asked(dpm_hw_driver_mpls_ilm_add(&entry, out, out, ~0u));
    }
    // Its label fields alone.
    template <class Entry> std::string labels(const Entry &entry) {
        const std::string fields = add(entry);
        return fields.substr(fields.find('|') + 2);
    }
    std::uint32_t out[2] = {};
};

template <class Entry> Entry entry_of(unsigned vrf, const char *fec, unsigned port_type) {
    Entry entry{};
    const dpm_prefix prefix = rig::prefix_of(fec);
    entry.vrf_id = vrf, entry.ip_type = std::uint8_t(prefix.family), entry.prefixlen = 16;
    std::memcpy(entry.fec_prefix, prefix.address, 16);
    std::memcpy(entry.mac, "\2\0\0\0\1\2", 6);
    entry.svlan = 0x10064, entry.out_port = 7, entry.port_type = port_type;
    return entry;
}
dpm_ftn ftn(unsigned vrf, const char *fec, const char *remote, unsigned port_type = 0) {
    auto entry = entry_of<dpm_ftn>(vrf, fec, port_type);
    const dpm_prefix end = rig::prefix_of(remote);
    entry.vpn_nhop_af = std::uint8_t(end.family), entry.vpn_prefixlen = 32;
    std::memcpy(entry.vpn_nhop, end.address, 16);
    entry.tunnel_label = 1000, entry.vpn_label = 1001;
    return entry;
}
dpm_ilm ilm(unsigned vrf, unsigned swap, bool egress, const char *fec = "10.2.0.0") {
    auto entry = entry_of<dpm_ilm>(vrf, fec, DPM_PORT_LOGICAL);
    entry.tunnel_ip_type = entry.ip_type, entry.ip_type = DPM_FAMILY_IPV4;
    entry.in_label = 2000, entry.swap_label = swap, entry.is_egress = egress;
    return entry;
}

const std::string by = "07 020000000102 64 ", in = "10 0a02 01 . | ", tunnel = "d007 . . ",
                  no_vpn = " . ffffff 00ff . ffffff . .", one = "01 20 01010101 ";

} // namespace

TEST_F(Encoding, AnAddAndItsDeleteNameTheSame) {
    set(9, 9, 9); // no policy
    const struct {
        dpm_ftn entry;
        std::string request, add_end, del_end;
    } ftns[] = {
        // clang-format off
        {ftn(0, "10.2.0.0", "1.1.1.1", 1),      "01 01 " + by + ". 01 10 0a02 01 . . . . | e803 00ff . ffffff", " . .", " 00ff ."},
        {ftn(0, "2001:db8::", "::"),            "01 02 " + by + ". 02 10 20010db8 02 . . . . | e803 00ff . ffffff", " . .", " 00ff ."},
        {ftn(5, "10.2.0.0", "1.1.1.1"),         "01 02 " + by + "05 " + one + "01 10 . 0a02 . | e803 00ff . e903", " 00ff .", " 00ff ."},
        {ftn(0x10005, "2001:db8::", "1.1.1.1"), "01 02 " + by + "05 " + one + "02 10 . 20010db8 . | e803 00ff . e903", " 00ff .", " 00ff ."},
        // clang-format on
    };
    for (const auto &row : ftns) {
        EXPECT_EQ(add(row.entry), row.request + row.add_end);
        EXPECT_EQ(asked(dpm_hw_driver_mpls_ftn_del(&row.entry)), row.request + row.del_end);
    }
    const struct {
        dpm_ilm entry;
        std::string request;
        bool has_policy; // the add, whatever the settings
    } ilms[] = {
        // clang-format off
        {ilm(0, 3000, false), ". . 02 . 01 " + by + ". 01 " + in + tunnel + "b80b 00ff" + no_vpn, true},
        {ilm(0, 3, false),    ". . . . 01 " + by + ". 01 " + in + tunnel + "03 00ff" + no_vpn, false},
        {ilm(0, 0, false),    ". . . . 01 " + by + ". 01 " + in + tunnel + ". 00ff" + no_vpn, false},
        {ilm(0, 3000, true),  "01 . . . 01 " + by + ". 01 " + in + tunnel + "b80b 00ff" + no_vpn, true},
        {ilm(5, 3, true),     "01 04 . . 01 " + by + "05 01 " + in + "ffffff . . ffffff 00ff . d007 00ff . 03 . .", true},
        {ilm(0, 3, false, "2001:db8::1"), ". . . . 01 " + by + ". 02 10 20010db8000000000000000000000001 01 . | " +
                                          tunnel + "03 00ff" + no_vpn, false},
        // clang-format on
    };
    for (const auto &row : ilms) {
        EXPECT_EQ(add(row.entry) != row.request, row.has_policy) << row.request;
        EXPECT_EQ(asked(dpm_hw_driver_mpls_ilm_del(&row.entry)), row.request);
    }
}

TEST_F(Encoding, EachLabelCarriesWhatTheSettingsSay) {
    const struct {
        int ttl, exp, value;
        std::string ftn, swap, egress;
    } rows[] = {
        // clang-format off
        {0, 9, 7, "00ff", "0101", "01"},             {1, 9, 7, "01", "0101", "01"},
        {5, 9, 7, "00ff", "0101", "01"},             {0, 0, 7, "00ff02", "010102", "010002"},
        {1, 1, 5, "01000005", "01010005", "01000005"},
        {1, 2, 0x106, "01000006", "01010006", "01000006"},
        // clang-format on
    };
    for (const auto &[ttl, exp, value, pushed, swapped, looked_up] : rows) {
        set(ttl, exp, value);
        EXPECT_EQ(labels(ftn(5, "10.2.0.0", "1.1.1.1")),
                  "e803 " + pushed + " . e903 " + pushed + " .");
        const auto four = [](const std::string &way) {
            return "d007 " + way + " . b80b " + way + " . ffffff " + way + " . ffffff " + way +
                   " .";
        };
        EXPECT_EQ(labels(ilm(0, 3000, false)), four(swapped));
        EXPECT_EQ(labels(ilm(0, 3000, true)), four(looked_up));
    }
}

TEST_F(Encoding, NothingIsAskedWithoutARecordAndVlansAreSwitched) {
    const dpm_ftn push = ftn(5, "10.2.0.0", "1.1.1.1");
    const dpm_ilm pop = ilm(5, 3, true);
    rig::expect_all(-1, {dpm_hw_driver_mpls_ftn_add(nullptr, out, out, 0),
                         dpm_hw_driver_mpls_ftn_add(&push, nullptr, out, 0),
                         dpm_hw_driver_mpls_ilm_add(&pop, out, nullptr, 0),
                         dpm_hw_driver_mpls_ftn_del(nullptr), dpm_hw_driver_mpls_ilm_del(nullptr)});
    EXPECT_EQ(logged(master(), "::input para null !"), 3u);
    EXPECT_EQ(dpm_hw_driver_mpls_if_add(0x10064, ~0u), 0);
    EXPECT_EQ(dpm_hw_driver_mpls_if_del(0x10064), 0);
    ASSERT_EQ(chip_calls(master()).size(), 2u);
    EXPECT_TRUE(chip_calls(master())[0].starts_with("mpls vlan 100 on"));
    EXPECT_TRUE(chip_calls(master())[1].starts_with("mpls vlan 100 off"));
    EXPECT_EQ(logged(master(), "dpm_hw_driver_mpls_if_add::dpm_driver_interface_mpls_enable ret=0"),
              2u);
}
