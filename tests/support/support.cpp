#include "tests/support/support.h"

#include "runtime/handles.h"

#include <algorithm>
#include <array>
#include <boost/format.hpp>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <pwd.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

std::string wholeText(int fd) {
    std::string text;
    std::array<char, 65536> chunk{};
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got = 0; (got = read(fd, chunk.data(), chunk.size())) > 0;)
        text.append(chunk.data(), static_cast<std::size_t>(got));
    return text;
}

std::string describe(const fs::path& path, const std::string& name) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return "? " + name;
    const char type = S_ISDIR(status.st_mode)   ? 'd'
                      : S_ISREG(status.st_mode) ? 'f'
                      : S_ISLNK(status.st_mode) ? 'l'
                                                : 'o';
    return (boost::format("%1% %2$04o %3%:%4% %5%") % type % (status.st_mode & 07777U) %
            getpwuid(status.st_uid)->pw_name % getgrgid(status.st_gid)->gr_name % name)
        .str();
}

} // namespace

Outcome inChild(const std::function<void()>& body, const std::string& input) {
    const std::array streams{UniqueFd(memfd_create("input", MFD_CLOEXEC)),
                             UniqueFd(memfd_create("output", MFD_CLOEXEC)),
                             UniqueFd(memfd_create("error", MFD_CLOEXEC))};
    EXPECT_EQ(write(streams[0].get(), input.data(), input.size()), static_cast<ssize_t>(input.size()));
    lseek(streams[0].get(), 0, SEEK_SET);

    const pid_t child = fork();
    if (child == 0) {
        for (int i = 0; i < 3; ++i)
            dup2(streams.at(static_cast<std::size_t>(i)).get(), i);
        alarm(300); // a program that the body executes keeps it
        body();
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), wholeText(streams[1].get()),
            wholeText(streams[2].get())};
}

Outcome run(const std::vector<std::string>& words, const std::string& input) {
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    return inChild(
        [&] {
            execvp(arguments[0], arguments.data());
            _exit(127);
        },
        input);
}

Outcome larkspur(std::vector<std::string> words, const std::string& input) {
    words.insert(words.begin(), LARKSPUR_PROGRAM);
    return run(words, input);
}

std::vector<std::string> tree(const fs::path& root) {
    std::vector<std::string> names{"."};
    if (fs::exists(root))
        for (const auto& entry : fs::recursive_directory_iterator(root))
            names.push_back(entry.path().string().substr(root.string().size() + 1));
    std::sort(names.begin(), names.end());
    std::vector<std::string> lines;
    for (const std::string& name : names)
        lines.push_back(describe(root / name, name));
    return lines;
}

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file.string(), std::ios::binary);
    return (std::ostringstream() << stream.rdbuf()).str();
}

void writeFile(const fs::path& file, const std::string& content, mode_t mode) {
    fs::create_directories(file.parent_path());
    std::ofstream(file.string(), std::ios::binary) << content;
    chmod(file.c_str(), mode);
}

void giveTo(const fs::path& path, const std::string& user, const std::string& group) {
    const Outcome outcome = run({"chown", "-hR", user + ":" + group, path.string()});
    ASSERT_EQ(outcome.status, 0) << outcome.error;
}

std::string metadata(const std::string& mappings, const std::string& version, const std::string& language) {
    const std::string base = "http://nimbo.example/ns/wtx/1";
    return "<application xmlns=\"" + base + "\" xmlns:php=\"" + base + "/php\" xmlns:cgi=\"" + base +
           "/cgi\" version=\"" + version + "\"><name>guestbook</name><version>1.0</version><release>1</release>" +
           "<configuration-script-language>" + language + "</configuration-script-language>" + mappings +
           "</application>";
}

void SandboxTest::SetUp() {
    const char* sandbox = std::getenv("LARKSPUR_SANDBOX");
    if (sandbox == nullptr || geteuid() != 0)
        GTEST_SKIP() << "needs root and the accounts of tests/support/sandbox";
    umask(022);
    base = fs::path(sandbox) / "case";
    package = base / "package";
    vhost = fs::path(sandbox) / "vhosts" / "test.example";
    docroot = vhost / "httpdocs";
    fs::create_directories(package);
    fs::create_directories(docroot);
    giveTo(vhost, "sitea", "kroserv");
}

Outcome SandboxTest::extractInto(const std::string& subdirectory, const fs::path& from) const {
    return larkspur({"--extract-application", "--application-full-name=file:///" + from.string(),
                     "--vhost-path=" + vhost.string(), "--www-root=" + docroot.string(), "--user-name=sitea",
                     "--application-subdirectory=" + subdirectory, "--metadata-file", ""});
}

void SandboxTest::TearDown() {
    boost::system::error_code ignored;
    fs::remove_all(base, ignored);
    fs::remove_all(vhost, ignored);
}

/// 77, for CTest, when nothing failed but a test could not be run; each says why.
int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    const int result = RUN_ALL_TESTS();
    return result == 0 && ::testing::UnitTest::GetInstance()->skipped_test_count() > 0 ? 77 : result;
}
