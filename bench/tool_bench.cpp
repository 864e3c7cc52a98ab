// yfs_tool_bench: the command as scripts call it, a process at a time, on a full-sized volume: its start alone, a list
// of 1,000 files, a check, a map. The set is made by the command itself.
#include "tests/support/table_builder.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr unsigned files = 1000, first_fileno = 100;

// Runs the command with its output thrown away, if quiet its messages too; its exit status, -1 where it didn't end by
// itself.
int run(std::vector<std::string> words, bool quiet)
{
    words.insert(words.begin(), YFS_TOOL);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (quiet) posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    int status = 0;
    const bool ended = posix_spawn(&child, YFS_TOOL, &actions, nullptr, arguments.data(), environ) == 0 &&
                       waitpid(child, &status, 0) == child && WIFEXITED(status);
    posix_spawn_file_actions_destroy(&actions);
    return ended ? WEXITSTATUS(status) : -1;
}

void expect(const std::vector<std::string>& words)
{
    if (const int status = run(words, false); status != 0) {
        std::fprintf(stderr, "yfs_tool_bench: yfs %s answers %d\n", words.front().c_str(), status);
        std::exit(1);
    }
}

void write(const fs::path& path, const void* bytes, std::size_t count)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary).write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
}

// 1,000 files of 200 to 1,200 bytes on a volume of 255 units.
void make_set(const fs::path& folder)
{
    fs::remove_all(folder);
    yfs::test::table_sku sku{17, {}};
    for (unsigned i = 0; i < files; ++i) {
        const std::string path = "/home/d" + std::to_string(i / 50) + "/value" + std::to_string(i);
        yfs::test::table_file file{path, first_fileno + i};
        file.file_index = static_cast<std::uint16_t>(i);
        sku.files.push_back(file);
        const std::string content(200 + 37 * i % 1000, static_cast<char>('a' + i % 26));
        write(folder / "in" / path.substr(1), content.data(), content.size());
    }
    const yfs::test::blob table = yfs::test::make_file_table({sku});
    write(folder / "ftbl.bin", table.data(), table.size());
    const yfs::test::blob defaults = yfs::test::make_cfg_table({{first_fileno, {'0'}}});
    write(folder / "velor.cfg", defaults.data(), defaults.size());
    const std::string set = R"({"sku": 17, "ftbl": "ftbl.bin", "velor": "velor.cfg", "yfs": "yfs.img"})";
    write(folder / "yfs.json", set.data(), set.size());
    expect({"mkfs", "afs", (folder / "yfs.img").string(), "--size", "2040K", "--files", "1200"});
    expect({"import", (folder / "in").string(), "--set", folder.string()});
}

} // namespace

int main(int argc, char** argv)
{
    const fs::path folder = fs::temp_directory_path() / ("yfs_tool_bench." + std::to_string(getpid()));
    make_set(folder);
    const std::string image = (folder / "yfs.img").string();

    struct command {
        const char* name;
        std::vector<std::string> words;
    };
    const std::array commands{
        command{"start (--version), mark 10 ms", {"--version"}},
        command{"ls, 1,000 files, mark 50 ms", {"ls", "-l", "--set", folder.string()}},
        command{"check, 2040 KiB, mark 100 ms", {"check", image}},
        command{"map, 2040 KiB, mark 100 ms", {"map", image}},
        command{"put of one file",
                {"put", "/home/d3/value160", (folder / "yfs.json").string(), "--set", folder.string(), "-n"}},
    };
    for (const command& one : commands) {
        expect(one.words);
        benchmark::RegisterBenchmark(one.name,
                                     [&one](benchmark::State& state) {
                                         for (auto round : state) {
                                             static_cast<void>(round);
                                             if (run(one.words, true) != 0) state.SkipWithError("the command failed");
                                         }
                                     })
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    fs::remove_all(folder);
    return 0;
}
