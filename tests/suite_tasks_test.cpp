// The tasks of the routing suite and their log files.

#include "support/rows.h"

#include <filesystem>
#include <fstream>
#include <ranges>

namespace {

namespace fs = std::filesystem;

class SuiteTasks : public rig::LoneShelf {};

struct LogFile : ::testing::Test {
    LogFile() : directory(::testing::TempDir() + "dpm-log-" + std::to_string(getpid())) {}
    ~LogFile() override {
        norix_vlog_close_file(&record);
        fs::remove_all(directory);
    }
    void write(char letter, unsigned length) {
        const std::string line(length + 1, letter); // one more than is to be written
        EXPECT_EQ(norix_vlog_write_file(&record, line.c_str(), length), 0);
    }
    // The letters of the lines of a generation.
    static std::string lines(const std::string &path) {
        std::ifstream file(path);
        std::string letters;
        for (std::string line; std::getline(file, line);)
            letters += line.at(0);
        return letters;
    }
    const std::string directory;
    norix_vlog_file record{};
};

} // namespace

TEST_F(SuiteTasks, AreStartedInOrderAndTheirModulesRegisteredOnce) {
    std::string started;
    const auto start = [&](const char *what) {
        const std::size_t before = master().os.tasks().size();
        EXPECT_EQ(run(what).text, "");
        started.clear();
        for (const auto &task : std::views::drop(master().os.tasks(), before)) {
            EXPECT_EQ(std::tuple(task.priority, task.options, task.stack_bytes),
                      std::tuple(55, 8, 204800));
            started += task.name + " " + std::to_string(task.arguments[0]) + " " +
                       std::to_string(task.arguments[3]) + " " +
                       reinterpret_cast<const char *>(task.arguments[4]) + "; ";
        }
        return started;
    };
    EXPECT_EQ(start("suite start"),
              "tNorix_imi 1 7650 imi_norix; tNorix_nsm 2 7601 nsm_norix; tNorix_rib 3 7662 "
              "rib_norix; tNorix_ospf 4 7604 ospf_norix; tNorix_ospf6 5 7606 ospf6_norix; "
              "tNorix_isis 6 7609 isis_norix; tNorix_bgp 7 7605 bgp_norix; tNorix_mpls 8 7673 "
              "mpls_norix; tNorix_ldp 9 7607 ldp_norix; tNorix_rsvp 10 7608 rsvp_norix; "
              "tNorix_mrib 11 7610 mrib_norix; tNorix_pim 12 7611 pim_norix; tNorix_rip 13 7602 "
              "rip_norix; tNorix_ripng 14 7603 ripng_norix; tNorix_bfd 15 7624 bfd_norix; "
              "tNorix_mplsonm 16 7675 mplsonm_norix; tNorix_vlog 17 -1 vlog_norix; ");
    EXPECT_EQ(master().os.module_version(g_vlog_mod_id).size(), 20u) << "date, blank, time";
    EXPECT_EQ(start("suite start nsm index 7"), "tNorix_nsm 7 7601 nsm_norix; ");
    std::uint32_t counter = 9;
    const std::uint32_t module = g_nsm_mod_id;
    const int handle = norix_nsm_init(&counter);
    EXPECT_EQ(handle, int(master().os.tasks().size())) << "the spawn's answer";
    EXPECT_EQ(std::pair(counter, g_nsm_mod_id), std::pair(9u, module));
    norix_vlog_file record{};
    EXPECT_EQ(norix_nsm_init(nullptr), -1);
    EXPECT_EQ(norix_vlog_open_file(&record, nullptr, 10), -1);
    EXPECT_NE(start("suite start").find("tNorix_vlog 2 "), std::string::npos)
        << "who is registered does not count";
}

TEST_F(LogFile, KeepsOneOldGenerationAndCountsWithoutTheEndsOfLines) {
    const std::string path = directory + "/a/b.log";
    ASSERT_EQ(norix_vlog_open_file(&record, path.c_str(), 100), 0);
    EXPECT_EQ(fs::status(directory + "/a").permissions() & fs::perms::others_all, fs::perms::none);
    for (const char letter : {'a', 'b', 'c', 'd'})
        write(letter, 50);
    write('e', 99);
    EXPECT_EQ(lines(path) + " " + lines(path + ".1"), "e cd") << "each pair fills a file";
    ASSERT_EQ(norix_vlog_open_file(&record, path.c_str(), 102), 0) << "and closes what was open";
    EXPECT_EQ(record.size, 100u) << "of the file, with the line's end";
    write('f', 2);
    EXPECT_EQ(lines(path) + " " + lines(path + ".1"), " ef");
    EXPECT_EQ(norix_vlog_close_file(&record), 0);
    write('g', 1);
    EXPECT_EQ(lines(path), "") << "nothing is written to a closed record";
}

TEST_F(LogFile, WithoutRoomForItsOldNameIsEmptiedAndOneThatIsLostIsOpenedAnew) {
    const std::string base = directory + "/" + std::string(248 - directory.size(), 'x') + "/";
    std::string path;                            // as long as the record is open
    for (const unsigned length : {253u, 254u}) { // with ".1" and the end: 256, and one more
        ASSERT_EQ(norix_vlog_close_file(&record), 0);
        path = base + std::string(length - base.size(), 'y');
        ASSERT_EQ(norix_vlog_open_file(&record, path.c_str(), 10), 0);
        write('a', 10);
        EXPECT_EQ(fs::file_size(path), 0u);
        EXPECT_EQ(fs::exists(path + ".1"), length == 253);
    }
    fs::remove_all(directory);
    write('b', 10); // into the file without a name; it cannot be had again
    EXPECT_EQ(record.file, nullptr);
    write('c', 3);
    fs::create_directories(base);
    write('d', 3);
    EXPECT_EQ(lines(path), "d");
    std::ofstream(directory + "/file") << "in the way";
    EXPECT_EQ(norix_vlog_open_file(&record, (directory + "/file/b.log").c_str(), 10), -1);
    EXPECT_EQ(norix_vlog_open_file(&record, std::string(5000, 'p').c_str(), 10), -1);
}
