// Random bytes and words from outside. Seeded; each check prints its number of cases.
#include <cstring>
#include <random>

#include "checks/harness.h"
#include "tests/usb_disk_test.h"

namespace {

using namespace checks;

constexpr unsigned kSeed = 20261122;

class Fuzz : public testing::Test {
  protected:
    int below(unsigned limit) { return static_cast<int>(random_() % limit); }
    std::string bytes(std::size_t size) {
        std::string text(size, '\0');
        for (char& byte : text)
            byte = static_cast<char>(random_());
        return text;
    }
    // A run may pass or fail, but it ends by itself and in order.
    void expect_end(const Outcome& got) {
        EXPECT_EQ(got.stopped, "");
        EXPECT_EQ(got.signal, 0);
        EXPECT_TRUE(got.status == 0 || got.status == 255) << got.status;
        ++tried_;
    }
    void TearDown() override { std::printf("%d random cases\n", tried_); }

    const int cases_ = full_form() ? 20'000 : 200;
    std::mt19937 random_{kSeed};
    int tried_ = 0;
};

TEST_F(Fuzz, CommandLines) {
    const char* words[] = {"-o", "-O", "-h", "--help", "netQ7test", "",   "0",  "1",
                           "2",  "02", "9",  "11",     "12",        "99", "x",  "1x",
                           "-",  "--", "-1", "+2",     "\xB2\xE2",  " 2", "007"};
    for (int i = 0; i < cases_; ++i) {
        std::vector<std::string> arguments(static_cast<std::size_t>(below(5)));
        for (std::string& word : arguments) {
            word = below(8) == 0 ? bytes(static_cast<std::size_t>(below(40))).c_str()
                                 : words[below(std::size(words))];
        }
        Board board = healthy();
        board.end = 300;  // a count may be too large to finish
        const Outcome got = run_with(board, arguments);
        const bool endless_count = !got.stopped.empty() && arguments.size() == 3;
        if (!endless_count) expect_end(got);
        EXPECT_TRUE(got.count("remove") == 0 || arguments.empty() || arguments[0] != "netQ7test");
    }
}

TEST_F(Fuzz, Rs485Echo) {
    for (int i = 0; i < cases_; ++i) {
        Board board = healthy();
        for (int k = below(5); k > 0; --k) {
            auto& bytes = below(2) == 0 ? board.rs485.corrupt : board.rs485.drop;
            bytes.insert(static_cast<std::uint32_t>(below(1100)));
        }
        for (int k = below(4); k > 0; --k) {
            board.rs485.pieces.push_back(1 + static_cast<std::uint32_t>(below(1100)));
        }
        board.rs485.delay = below(60) / 10.0;
        const Outcome got = run(board, "-o 4");
        expect_end(got);
        const auto first = [](const auto& places) {
            return places.empty() ? 1024 : *places.begin();
        };
        const bool damaged = first(board.rs485.corrupt) < 1024 || first(board.rs485.drop) < 1024;
        const bool good = got.console.find("正确:    1024字节") != std::string::npos;
        EXPECT_TRUE(!damaged || !good) << "run " << i;
        EXPECT_TRUE(got.results.rs485 == 0 || damaged) << "run " << i;
    }
}

TEST_F(Fuzz, FirmwareHeader) {
    for (int i = 0; i < cases_; ++i) {
        Board board = healthy("bridges.1 = {flash = \"55 AA\", erase_time = 0}");
        std::string& file = board.files.at("/dav0/zeb321.bin").bytes;
        file = below(4) == 0 ? bytes(static_cast<std::size_t>(below(600)))
                             : sim::firmware_image(static_cast<std::uint32_t>(32 + 4 * below(32)));
        for (int k = below(3); k > 0 && !file.empty(); --k) {
            file[static_cast<std::size_t>(below(16)) % file.size()] = static_cast<char>(random_());
        }
        const Outcome got = run(board, "-o 10");
        expect_end(got);
        const bool accepted = got.console.find("INFO: Binfile length = ") != std::string::npos;
        const std::uint8_t* cells = got.world->bridges[0].flash.cells;
        const bool equal = std::memcmp(cells, file.data(), file.size()) == 0;
        const bool untouched = cells[0] == 0x55 && cells[1] == 0xAA && cells[2] == 0xFF;
        EXPECT_TRUE(accepted ? equal : untouched) << "run " << i;
        EXPECT_EQ(got.world->bridges[0].resets, accepted ? 1u : 0u);
    }
}

TEST_F(Fuzz, IdentifyData) {
    for (int i = 0; i < cases_; ++i) {
        Board board = healthy("hardware.sata_layout = 1\nhardware.esata = 0");
        board.disks.at("sda").identify_data = bytes(static_cast<std::size_t>(below(520)));
        const Outcome got = run(board, "-o 8");
        expect_end(got);
        EXPECT_EQ(got.results.sata_disks_found, 1);
        EXPECT_THAT(got.console, EndsWith("\n硬盘容量  :931GB\n"));
    }
}

// For any content of /dev: at most eight names, all from the directory, in its order.
TEST_F(Fuzz, DeviceNames) {
    for (int i = 0; i < 100 * cases_; ++i, ++tried_) {
        DiskNames disks{};
        std::vector<std::string> directory;
        while (below(20) != 0 && !disks.is_full()) {
            std::string name = below(3) == 0 ? "m" : "ms";
            for (int length = below(below(9) == 0 ? 80 : 4); length > 0; --length) {
                name += "ab12ms/\xE9"[below(8)];
            }
            directory.push_back(name.substr(0, 49));
            take_disk_name(disks, name.c_str());
        }
        auto from = directory.begin();
        for (std::size_t k = 0; k < disks.count; ++k) {
            from = std::find(from, directory.end(), disks.names[k]);
            ASSERT_NE(from++, directory.end()) << "case " << i;
        }
    }
}

}  // namespace
