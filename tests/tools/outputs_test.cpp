#include "tools/tool_runner.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tooltest {
namespace {

namespace fs = std::filesystem;
using Content = std::map<std::string, std::string>;
using testing::HasSubstr;
using testing::StartsWith;

const std::string Away = "1 0 0 500 0 1 0 0 0 0 1 0 0 0 0 1", Same = "1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1";

/// What a person sees in a folder, by name.
Content Visible(const fs::path& folder)
{
    Content content;
    for (const auto& entry : fs::directory_iterator(folder))
        if (const std::string name = entry.path().filename().string(); name[0] != '.')
            content[name] = entry.is_regular_file() ? FileBytes(entry.path()) : "";
    return content;
}

/// A small scan, and poses from which its refinement is found or refused.
void WriteInputs(const Workplace& place)
{
    place.Write("a.ply", PlyBytes(Blob(900, 100.0F)));
    place.Write("away.txt", Away);
    place.Write("same.txt", Same);
}

constexpr const char* Register = "register a.ply a.ply --quiet --start ";

/// The set of files of a command, made somewhere else.
Content SetOf(const Workplace& place, const std::string& command)
{
    (void)place.Run(command + " --out elsewhere");
    const Content set = Visible(place.PathOf("elsewhere"));
    fs::remove_all(place.PathOf("elsewhere"));
    return set;
}

TEST(ToolOutputs, AreNeverInputs)
{
    const Workplace place;
    WriteInputs(place);
    ASSERT_EQ(place.Run(std::string(Register) + "same.txt --out out").exitCode, 0);
    fs::create_hard_link(place.PathOf("a.ply"), place.PathOf("hard.html"));
    fs::create_symlink("a.ply", place.PathOf("soft.html"));
    fs::create_symlink("out", place.PathOf("also"));
    place.Write("c.json", "{}");
    const Content before = place.Everything();
    struct Row {
        const char *arguments, *output, *other;
    };
    const Row table[] = {
        {"register a.ply b.ply --report a.ply", "a.ply", "a.ply"},
        {"register b.ply a.ply --report hard.html", "hard.html", "a.ply"},
        {"register b.ply a.ply --report soft.html", "soft.html", "a.ply"},
        {"register out/registered.ply a.ply --out out", "out/registered.ply", "out/registered.ply"},
        {"register out/registered.ply a.ply --out also/../also", "also/../also/registered.ply", "out/registered.ply"},
        {"register a.ply a.ply --start out/pose.txt --out out", "out/pose.txt", "out/pose.txt"},
        {"register a.ply a.ply --config c.json --report ./c.json", "./c.json", "c.json"},
        {"register a.ply a.ply --out a.ply", "a.ply", "a.ply"},
        {"register a.ply a.ply --out new --report new/../new/pose.txt", "new/../new/pose.txt", "new/pose.txt"},
        {"register a.ply a.ply --out new --report new", "new", "new"},
        {"case run out/case.bson --out out", "out/case.bson", "out/case.bson"},
        {"case run out/case.bson --report out/case.bson", "out/case.bson", "out/case.bson"},
        {"case pack a.ply b.ply --out a.ply", "a.ply", "a.ply"},
        {"features a.ply --out hard.html", "hard.html", "a.ply"},
        {"simulate --mesh out/fix.ply --out out", "out/fix.ply", "out/fix.ply"},
    };
    for (const Row& row : table) {
        const Outcome outcome = place.Run(row.arguments);
        EXPECT_EQ(outcome.exitCode, 64) << row.arguments;
        EXPECT_THAT(outcome.errors, testing::AllOf(HasSubstr(row.output), HasSubstr(row.other))) << row.arguments;
        EXPECT_TRUE(place.Everything() == before) << row.arguments;
    }
}

/// A process that is killed before its n-th change of the file system takes effect.
class KilledRun {
public:
    /// Returns false if it ended before that, or if processes may not be traced.
    static bool Start(const std::string& folder, const std::vector<std::string>& arguments, unsigned n)
    {
        const pid_t child = fork();
        if (child == 0) runTraced(folder, arguments);
        int status = 0;
        waitpid(child, &status, 0);
        ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        for (unsigned changes = 0; WIFSTOPPED(status);) {
            const int signal = WSTOPSIG(status);
            if (signal == (SIGTRAP | 0x80) && isChange(child) && ++changes == n) kill(child, SIGKILL);
            const bool isOurs = signal == SIGTRAP || signal == (SIGTRAP | 0x80);
            ptrace(PTRACE_SYSCALL, child, nullptr, isOurs ? 0 : signal);
            waitpid(child, &status, 0);
        }
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }

private:
    [[noreturn]] static void runTraced(const std::string& folder, const std::vector<std::string>& arguments)
    {
        std::vector<char*> argv;
        for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        const int nothing = open("/dev/null", O_WRONLY);
        dup2(nothing, 1);
        dup2(nothing, 2);
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // leaks cannot be looked for in a traced process
        if (chdir(folder.c_str()) == 0 && ptrace(PTRACE_TRACEME) == 0) execv(VOALGO_TOOL, argv.data());
        _exit(1);
    }

    static bool isChange(pid_t child)
    {
        static const std::set<std::uint64_t> changes = {
#if defined(SYS_rename)
            SYS_rename,
            SYS_link,
            SYS_unlink,
            SYS_mkdir,
            SYS_rmdir,
#endif
            SYS_renameat,
            SYS_renameat2,
            SYS_linkat,
            SYS_unlinkat,
            SYS_mkdirat,
            SYS_openat,
            SYS_write,
        };
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof(info), &info) <= 0) return false;
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY || changes.count(info.entry.nr) == 0) return false;
        return info.entry.nr != SYS_openat || (info.entry.args[2] & O_CREAT) != 0;
    }
};

/// Kills a run in the folder work/ at each of its changes in turn, beginning with the `first`; `before` lays out the
/// folder, `check` sees what is left. The next run succeeds and clears up.
void KillEverywhere(const Workplace& place, const std::string& command, unsigned first,
                    const std::function<void()>& before, const std::function<void()>& check)
{
    std::istringstream stream("voalgo " + command);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    unsigned n = first;
    for (before(); KilledRun::Start(place.PathOf("work"), words, n); before(), ++n) {
        SCOPED_TRACE(command + ", killed before change " + std::to_string(n));
        check();
        if (n % 8 == 0) {
            EXPECT_EQ(place.Shell("cd work && \"$VOALGO\" " + command).exitCode, 0);
            for (const auto& entry : fs::recursive_directory_iterator(place.PathOf("work")))
                EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path() << " was left behind";
        }
        if (testing::Test::HasFailure()) return;
    }
    if (n == first) GTEST_SKIP() << "processes may not be traced here";
    EXPECT_GT(n, first + 3U);
}

class ToolKilled : public testing::Test {
protected:
    ToolKilled()
    {
        fs::create_directory(place.PathOf("work"));
        WriteInputs(place);
        oldSet = SetOf(place, std::string(Register) + "away.txt");
        newSet = SetOf(place, std::string(Register) + "same.txt");
    }

    /// Lays out a folder with the inputs and, unless it is empty, out/ with a set.
    [[nodiscard]] std::function<void()> folder(const Content& set, const std::string& other = "") const
    {
        return [this, set, other] {
            fs::remove_all(place.PathOf("work"));
            fs::create_directories(place.PathOf(set.empty() ? "work" : "work/out"));
            for (const char* name : {"a.ply", "same.txt"}) fs::copy(place.PathOf(name), place.PathOf("work"));
            for (const auto& [name, bytes] : set) place.Write("work/out/" + name, bytes);
            if (!other.empty()) fs::create_directories(place.PathOf("work/out/" + other));
        };
    }

    static constexpr unsigned AllStaged = 15; // changes later, nearly all files of a set are staged
    const std::string command = std::string(Register) + "same.txt --out out";
    Workplace place;
    Content oldSet; // of a refusal: without a pose, and with another picture
    Content newSet;
};

TEST_F(ToolKilled, LeavesTheOldSetOrTheNewOneBesideOtherFiles)
{
    for (Content* set : {&oldSet, &newSet}) (*set)["notes.txt"] = "of the user";
    unsigned newSets = 0;
    KillEverywhere(place, command, 1, folder(oldSet), [&] {
        const Content left = Visible(place.PathOf("work/out"));
        newSets += left == newSet ? 1 : 0;
        EXPECT_TRUE(left == oldSet || left == newSet);
    });
    EXPECT_GT(newSets, 0U);
}

TEST_F(ToolKilled, LeavesNoFolderOrAWholeOne)
{
    KillEverywhere(place, command, AllStaged, folder({}),
                   [&] { EXPECT_TRUE(!place.Has("work/out") || Visible(place.PathOf("work/out")) == newSet); });
}

/// A folder with a folder inside cannot be replaced in one step: every file is whole, and result.json comes first.
TEST_F(ToolKilled, LeavesWholeFilesBesideOtherFolders)
{
    KillEverywhere(place, command, AllStaged, folder(oldSet, "folder"), [&] {
        Content left = Visible(place.PathOf("work/out"));
        EXPECT_EQ(left.erase("folder"), 1U);
        bool isNew = left["result.json"] == newSet["result.json"];
        EXPECT_TRUE(isNew || left == oldSet);
        for (const auto& [name, bytes] : left) EXPECT_TRUE(bytes == oldSet[name] || bytes == newSet[name]) << name;
    });
}

TEST_F(ToolKilled, LeavesTheOldFileOrTheNewOne)
{
    const std::string run = "case pack a.ply a.ply --quiet --out ";
    ASSERT_EQ(place.Run(run + "whole").exitCode, 0);
    const std::string whole = place.Read("whole");
    KillEverywhere(place, run + "out/file", 1, folder({{"file", "old"}}), [&] {
        const std::string left = place.Read("work/out/file");
        EXPECT_TRUE(left == "old" || left == whole);
    });
}

/// Whatever the system refuses: exit code 3, the file and the reason; the old results stay, and the new ones are
/// printed if there are any.
TEST(ToolOutputs, ThatCannotBeWrittenLeaveTheOldOnes)
{
    const Workplace place;
    WriteInputs(place);
    ASSERT_EQ(place.Run(std::string(Register) + "away.txt --out out --report out/page.html").exitCode, 2);
    place.Write("file", "");
    fs::create_directories(place.PathOf("taken/pose.txt"));
    const std::string run = std::string("\"$VOALGO\" ") + Register + "same.txt";
    struct Row {
        std::string script;
        const char *message, *output;
    };
    const char* const pose = "rank  overlap";
    const Row table[] = {
        {"ulimit -f 4; " + run + " --out out", "cannot write out/result.json: File too large", pose},
        {"ulimit -f 40; " + run + " --out out", "cannot write out/registered.ply: File too large", pose},
        {"ulimit -f 200; " + run + " --out out --report out/page.html", "cannot write out/", pose},
        {"ulimit -f 200; " + run + " --report out/page.html", "cannot write out/page.html: File too large", pose},
        {"ulimit -f 4; \"$VOALGO\" case pack a.ply a.ply --out out/case.bson", "out/case.bson: File too large", ""},
        {"ulimit -f 1; \"$VOALGO\" features a.ply --out out/pose.txt", "out/pose.txt: File too large",
         "123 feature points"},
        {"ulimit -f 4; \"$VOALGO\" simulate --points 500 --out out/s", "cannot write out/s/fix.ply: File too", ""},
        {run + " --report /dev/full", "cannot write /dev/full: No space left on device", pose},
        {run + " --out file", "cannot write file: Not a directory", ""},
        {run + " --out file/out", "cannot write file/out: Not a directory", ""},
        {run + " --out taken", "cannot write taken/pose.txt: Is a directory", ""},
        {run + " --report none/page.html", "cannot write none/page.html: No such file or directory", ""},
        {run + " --report out", "cannot write out: Is a directory", ""},
    };
    const Content before = place.Everything();
    for (const Row& row : table) {
        SCOPED_TRACE(row.script);
        const Outcome outcome = place.Shell(row.script);
        EXPECT_EQ(outcome.exitCode, 3);
        EXPECT_THAT(outcome.errors, HasSubstr(row.message));
        EXPECT_THAT(outcome.output, *row.output != '\0' ? testing::Matcher<std::string>(HasSubstr(row.output)) : "");
        EXPECT_TRUE(place.Everything() == before);
    }
}

TEST(ToolOutputs, ThatDoNotFitOnTheDiskLeaveTheOldOnes)
{
    const Workplace place;
    WriteInputs(place);
    fs::create_directory(place.PathOf("disk"));
    if (mount("none", place.PathOf("disk").c_str(), "tmpfs", 0, "size=600k") != 0)
        GTEST_SKIP() << "no file system can be mounted here";
    ASSERT_EQ(place.Run(std::string(Register) + "away.txt --out disk/out").exitCode, 2);
    const Content before = place.Everything();
    const Outcome full = place.Run(std::string(Register) + "same.txt --out disk/out");
    EXPECT_EQ(full.exitCode, 3);
    EXPECT_THAT(full.errors, HasSubstr(": No space left on device"));
    EXPECT_TRUE(place.Everything() == before);
    umount(place.PathOf("disk").c_str());
}

TEST(ToolOutputs, NeedPermission)
{
    const Workplace place;
    WriteInputs(place);
    const std::string run = std::string("\"$VOALGO\" ") + Register + "same.txt --out ";
    const std::string as = geteuid() == 0 ? "setpriv --reuid=65534 --clear-groups " : "";
    if (place
            .Shell("chmod 777 . && mkdir shut kept && " + as +
                   "test -x \"$VOALGO\" && touch kept/pose.txt && "
                   "chmod 444 kept/pose.txt && chmod 777 kept && chmod 555 shut")
            .exitCode != 0)
        GTEST_SKIP() << "cannot run as another user";
    for (const std::string out : {"shut", "shut/new", "kept"}) {
        const Outcome outcome = place.Shell(as + run + out);
        EXPECT_EQ(outcome.exitCode, 3) << out;
        EXPECT_THAT(outcome.errors, testing::AllOf(HasSubstr("cannot write " + out), HasSubstr("Permission denied")));
        EXPECT_EQ(outcome.output, "") << "told before the search";
    }
    (void)place.Shell("chmod 777 shut");
}

/// Modes and links of what is replaced stay as they are, and so does the current directory.
TEST(ToolOutputs, KeepTheFolderAsItIs)
{
    const Workplace place;
    WriteInputs(place);
    fs::create_directory(place.PathOf("real"));
    place.Write("real/notes.txt", "of the user");
    ASSERT_EQ(place
                  .Shell("chmod 2750 real && ln -s real link && echo old > real/page.html && "
                         "echo > real/pose.txt && chmod 600 real/page.html real/pose.txt && ln -s real/page.html "
                         "latest.html && cd link && \"$VOALGO\" register "
                         "../a.ply ../a.ply --start ../same.txt --out . --quiet && cd .. && \"$VOALGO\" " +
                         std::string(Register) +
                         "same.txt --out link --report latest.html && stat -c '%a %F %n' real link real/pose.txt "
                         "real/page.html latest.html")
                  .exitCode,
              0);
    EXPECT_THAT(place.Read("stdout.txt"), HasSubstr("\n2750 directory real\n777 symbolic link link\n600 regular file "
                                                    "real/pose.txt\n600 regular file real/page.html\n"
                                                    "777 symbolic link latest.html\n"));
    EXPECT_THAT(place.Read("real/page.html"), StartsWith("<!"));
    EXPECT_TRUE(place.Has("real/pose.txt"));
    ASSERT_EQ(place.Run(std::string(Register) + "same.txt --out real --report notes.txt").exitCode, 0);
    EXPECT_EQ(place.Read("real/notes.txt"), "of the user") << "a report elsewhere has the same name";
}

/// What is printed and lost is an error, of every command.
TEST(ToolOutputs, OnStandardOutputAreCheckedAtTheEnd)
{
    const Workplace place;
    WriteInputs(place);
    ASSERT_EQ(place.Run("case pack a.ply a.ply --out case.bson --quiet").exitCode, 0);
    const std::string commands[] = {std::string(Register) + "same.txt",
                                    std::string(Register) + "same.txt --json --out r",
                                    "info a.ply",
                                    "info a.ply --json",
                                    "features a.ply",
                                    "case show case.bson",
                                    "case run case.bson",
                                    "simulate --points 500 --out s",
                                    "--help",
                                    "--version",
                                    "register --help"};
    for (const std::string& command : commands)
        for (const auto& [sink, reason] :
             {std::pair(">/dev/full", "No space left on device"), {">&-", "Bad file desc"}}) {
            const Outcome outcome = place.Shell("\"$VOALGO\" " + command + ' ' + sink);
            EXPECT_EQ(outcome.exitCode, 3) << command << sink;
            EXPECT_THAT(outcome.errors, HasSubstr(std::string("cannot write to standard output: ") + reason))
                << command;
        }
    EXPECT_THAT(place.Read("r/result.json"), StartsWith("{")) << "a file must not become standard output";
    EXPECT_EQ(place.Shell("\"$VOALGO\" case pack a.ply a.ply --out case.bson --quiet >&- 2>&- <&-").exitCode, 0);
}

/// File names that are not UTF-8 work everywhere, and JSON stays UTF-8.
TEST(ToolOutputs, MayHaveAnyName)
{
    const Workplace place;
    place.Write("a\xE9.ply", PlyBytes(Blob(900, 100.0F)));
    place.Write("s\xE9.txt", Same);
    place.Write("c\xE9.json", "{}");
    const char* const commands[] = {("register a\xE9.ply a\xE9.ply --start s\xE9.txt --config c\xE9.json --out o\xE9 "
                                     "--report o\xE9/r\xE9.html --json"),
                                    "info a\xE9.ply --json",
                                    "features a\xE9.ply --out f\xE9.xyzn",
                                    "case show o\xE9/case.bson",
                                    "case pack a\xE9.ply a\xE9.ply --out o\xE9/p\xE9",
                                    "simulate --points 500 --out s\xE9",
                                    "case run o\xE9/case.bson --out q\xE9 --json"};
    for (const std::string command : commands) {
        const Outcome outcome = place.Run(command);
        EXPECT_NE(outcome.exitCode, 3) << command << outcome.errors;
        EXPECT_NE(outcome.exitCode, 64) << command << outcome.errors;
        if (command.find("--json") != std::string::npos) {
            EXPECT_THAT(nlohmann::json::parse(outcome.output).dump(), HasSubstr("\xEF\xBF\xBD")) << command;
        }
    }
    for (const char* file : {"o\xE9/r\xE9.html", "o\xE9/pose.txt", "o\xE9/p\xE9", "f\xE9.xyzn", "s\xE9/fix.ply"})
        EXPECT_TRUE(place.Has(file)) << file;
    EXPECT_NO_THROW((void)nlohmann::json::parse(place.Read("q\xE9/result.json")));
}

} // namespace
} // namespace tooltest
