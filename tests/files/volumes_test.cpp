// Volumes: mount points, free space, sizes for people.

#include "vellcore/volumes.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <clocale>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/mount_table.h"
#include "support/temporary_folder.h"

namespace {

std::string volume_of(const std::string& path) {
    char out[4096] = "untouched";
    return vl_get_volumepath(path.c_str(), out, sizeof out) ? out : "(none)";
}

TEST(MountTable, FindsAMountByItsNumber) {
    const char* table =
        "22 1 0:20 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "2 22 0:5 / /dev rw - devtmpfs udev rw\n"
        "x25 22 0:5 / /wrong rw - tmpfs tmpfs rw\n"
        "25 22 0:21 / /mnt/a\\040b\\011c\\134d rw - tmpfs tmpfs rw\n"
        "26 22 0:21 / /mnt/cut\\04\\088 rw - tmpfs tmpfs rw\n"
        "27 22\n"
        "\n"
        "29 22 0:23 / /ends\\000early rw - tmpfs tmpfs rw\n"
        "28 22 0:22 / /last";
    const struct {
        uint64_t id;
        const char* expected;
    } cases[] = {{22, "/"},
                 {2, "/dev"},
                 {25, "/mnt/a b\tc\\d"},
                 {26, "/mnt/cut\\04\\088"},
                 {27, ""},
                 {28, "/last"},
                 {0, ""},
                 {5, ""},
                 {222, ""},
                 {29, ""}};
    for (const auto& c : cases) {
        char out[64] = "";
        const bool is_found = vell::find_in_mount_table(table, c.id, out, sizeof out);
        EXPECT_STREQ(is_found ? out : "", c.expected) << c.id;
    }
    char exact[5], cut[4];
    EXPECT_TRUE(vell::find_in_mount_table(table, 2, exact, sizeof exact));
    EXPECT_FALSE(vell::find_in_mount_table(table, 2, cut, sizeof cut));
}

TEST(Volumes, AnswersForTheNearestExistingFolder) {
    EXPECT_EQ(volume_of("/proc/self/status"), "/proc");
    EXPECT_EQ(volume_of("/proc/self/no such file/nor this"), "/proc");
    EXPECT_EQ(volume_of("/proc/"), "/proc");
    EXPECT_EQ(volume_of("/"), "/");
    EXPECT_EQ(volume_of("/no such folder"), "/");
    EXPECT_EQ(volume_of("no such file"), "(none)");
    EXPECT_EQ(volume_of("no such folder/file"), "(none)");
    EXPECT_EQ(volume_of(""), "(none)");
    const TemporaryFolder folder;
    std::filesystem::create_symlink("/proc/self", folder / "link");
    EXPECT_EQ(volume_of(folder / "link"), "/proc");
    EXPECT_EQ(volume_of(folder / "missing"), volume_of(folder.path()));
    std::filesystem::current_path(folder.path());
    folder.write("file", "");
    EXPECT_EQ(volume_of("file"), volume_of(folder.path()));
    std::filesystem::current_path("/");
}

TEST(Volumes, CutsWhatDoesNotFit) {
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_TRUE(vl_get_volumepath("/proc/self", out, 3));
    EXPECT_STREQ(out, "/p");
    EXPECT_EQ(out[3], 'x');
    EXPECT_TRUE(vl_get_volumepath("/proc/self", out, 1));
    EXPECT_STREQ(out, "");
    out[0] = 'x';
    EXPECT_FALSE(vl_get_volumepath("/proc/self", out, 0));
    EXPECT_EQ(out[0], 'x');
    EXPECT_FALSE(vl_get_volumepath("/proc/self", nullptr, 4));
    EXPECT_FALSE(vl_get_volumepath(nullptr, out, 4));
    EXPECT_EQ(volume_of("/proc/" + std::string(2000, 'x')), "/proc");
}

void write_text(const char* path, const std::string& text) {
    std::ofstream(path) << text;
}

/// Moves this process into a mount table of its own. Without root's rights it takes a user namespace, where the system
/// allows one.
bool can_mount() {
    const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
        write_text("/proc/self/setgroups", "deny");
        write_text("/proc/self/uid_map", "0 " + user + " 1");
        write_text("/proc/self/gid_map", "0 " + group + " 1");
    }
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

TEST(Volumes, SeesBindMountsAndMountsOverMounts) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder / "a b/below");
    std::filesystem::create_directories(folder / "bound");
    folder.write("file", "");
    folder.write("bound file", "");
    const std::string inner = folder / "a b";
    if (!can_mount() || mount("tmpfs", inner.c_str(), "tmpfs", 0, nullptr) != 0) GTEST_SKIP() << "no right to mount";
    EXPECT_EQ(volume_of(inner + "/missing"), inner);
    std::filesystem::create_directories(inner + "/below");
    EXPECT_EQ(mount((inner + "/below").c_str(), (folder / "bound").c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(volume_of(folder / "bound"), folder / "bound");
    EXPECT_EQ(mount((folder / "file").c_str(), (folder / "bound file").c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(volume_of(folder / "bound file"), folder / "bound file");
    EXPECT_EQ(mount("tmpfs", inner.c_str(), "tmpfs", 0, "size=1m"), 0);
    EXPECT_EQ(volume_of(inner), inner);
    EXPECT_EQ(vl_freespace(inner.c_str()), 1u << 20);
    EXPECT_EQ(umount(inner.c_str()) + umount((folder / "bound file").c_str()) + umount((folder / "bound").c_str()) +
                  umount(inner.c_str()),
              0);
}

TEST(Volumes, TellsTheFreeSpace) {
    const TemporaryFolder folder;
    struct statvfs facts {};
    ASSERT_EQ(statvfs(folder.path().c_str(), &facts), 0);
    const uint64_t whole = uint64_t{facts.f_frsize} * facts.f_blocks;
    const uint64_t bytes = vl_freespace(folder.path().c_str());
    EXPECT_GT(bytes, 0u);
    EXPECT_LE(bytes, whole);
    EXPECT_EQ(vl_freespace((folder / "missing").c_str()), ~0ULL);
    EXPECT_EQ(vl_freespace(nullptr), ~0ULL);
}

TEST(Volumes, NamesSizesForPeople) {
    std::setlocale(LC_ALL, "de_DE.UTF-8");  // where there is one, its decimal point is a comma
    constexpr unsigned long long k_mib = 1 << 20, k_gib = k_mib << 10, k_tib = k_gib << 10;
    const struct {
        unsigned long long bytes;
        const char* expected;
    } cases[] = {
        {0, "0 Kb"},
        {512, "0 Kb"},
        {513, "1 Kb"},
        {1536, "2 Kb"},
        {2560, "2 Kb"},
        {k_mib, "1024 Kb"},
        {k_mib + 1, "1 Mb"},
        {k_gib, "1024 Mb"},
        {k_gib + 1, "1.0 Gb"},
        {1536 * k_mib, "1.5 Gb"},
        {k_tib, "1024.0 Gb"},
        {k_tib + 1, "1.00 Tb"},
        {2 * k_tib, "2.00 Tb"},
        {~0ULL, "16777216.00 Tb"},
    };
    for (const auto& c : cases) {
        char out[32];
        EXPECT_TRUE(vl_byte_size_designation(c.bytes, out));
        EXPECT_STREQ(out, c.expected) << c.bytes;
    }
    EXPECT_FALSE(vl_byte_size_designation(1, nullptr));
}

TEST(Volumes, AnswersWhatThisSystemAlwaysAnswers) {
    unsigned first = 7, second = 7;
    EXPECT_EQ(vl_get_volumeinfo("/", &first, &second), 0);
    EXPECT_EQ(first + second, 14u);
    vl_set_systemdisk(1);
    EXPECT_TRUE(vl_localpath("/"));
    EXPECT_EQ(cfg_sys_internals(), 0);
    EXPECT_FALSE(is_removable_drive("/") || is_remote_network_drive("/"));
}

}  // namespace
