#include "tests/support/support.h"

#include "runtime/handles.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <map>
#include <sstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace {

constexpr unsigned patience = 100; ///< seconds, after which an alarm ends a process that does not end by itself

class Impatience : public EmptyTestEventListener {
    void OnTestStart(const TestInfo&) override { alarm(2 * patience); }
};

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
        alarm(patience);              // a program that the body executes keeps it
        [&]() noexcept { body(); }(); // an exception must not lead on to the tests that follow
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const auto text = [&](std::size_t i) { return contentOf("/proc/self/fd/" + std::to_string(streams.at(i).get())); };
    return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            .output = text(1),
            .error = text(2),
            .command = {}};
}

void refuseCall(long call, unsigned error) {
    std::array<sock_filter, 4> program{{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1),
                                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
    const sock_fprog filter{program.size(), program.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        _exit(notAllowed);
}

void interruptBy(void (*handler)(int)) {
    struct sigaction interruption {};
    interruption.sa_handler = handler;
    sigaction(SIGUSR1, &interruption, nullptr);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGUSR1;
    timer_t timer{}; // setitimer(2) would take the alarm away that ends a child
    timer_create(CLOCK_MONOTONIC, &event, &timer);
    const itimerspec often{{0, 20'000'000}, {0, 20'000'000}};
    timer_settime(timer, 0, &often, nullptr);
}

Outcome run(const Words& words, const std::string& input) {
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const auto execute = [&] {
        execvp(arguments[0], arguments.data());
        _exit(127);
    };
    Outcome outcome = inChild(execute, input);
    outcome.command = words;
    return outcome;
}

Words joined(Words first, const Words& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Words byShell(const std::string& shell, const Words& words) {
    return joined({"sh", "-c", shell, "sh"}, words);
}

Words unread(const Words& words) {
    return joined({LARKSPUR_SOURCE_DIR "/tests/support/unread"}, words);
}

void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << "status " << outcome.status << ", error: " << outcome.error << ", output: " << outcome.output;
    for (const std::string& word : outcome.command)
        *stream << (&word == &outcome.command.front() ? "\nof: " : " ") << std::quoted(word, '\'');
}

Matcher<const Outcome&> ended(int status, const Text& error, const Text& output) {
    return AllOf(Field("status", &Outcome::status, status), Field("error", &Outcome::error, error),
                 Field("output", &Outcome::output, output));
}

Words tree(const fs::path& root) {
    std::istringstream found(run({"find", root.string(), "-printf", "%P\\0%y %04m %u:%g \\0"}).output);
    std::map<std::string, std::string> sorted; // by names, which may hold line breaks
    for (std::string name, what; std::getline(found, name, '\0') && std::getline(found, what, '\0');)
        sorted[name] = what + (name.empty() ? "." : name);
    Words lines;
    for (const auto& [name, line] : sorted)
        lines.push_back(line);
    return lines;
}

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file.string(), std::ios::binary);
    return (std::ostringstream() << stream.rdbuf()).str();
}

Words linesOf(const std::string& text) {
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

void writeFile(const fs::path& file, const std::string& content, mode_t mode) {
    fs::create_directories(file.parent_path());
    std::ofstream(file.string(), std::ios::binary) << content;
    chmod(file.c_str(), mode);
}

void make(const fs::path& root, const Words& entries) {
    for (const std::string& entry : entries) {
        const auto arrow = entry.find(" -> ");
        const fs::path path = root / entry.substr(0, arrow);
        if (entry.ends_with('/')) {
            fs::create_directories(path);
        } else if (arrow == std::string::npos) {
            writeFile(path, "content\n");
        } else {
            fs::create_directories(path.parent_path());
            fs::create_symlink(entry.substr(arrow + 4), path);
        }
    }
}

std::string namesIn(const fs::path& root) {
    if (!fs::exists(root))
        return {};
    std::string names;
    for (const std::string& line : tree(root)) { // "TYPE MODE USER:GROUP NAME"
        const std::string type = line.substr(0, 1);
        const std::string name = line.substr(line.find(' ', line.find(':')) + 1);
        names += (names.empty() ? "" : " ") + type + " " + name;
    }
    return names;
}

void giveTo(const fs::path& path, const std::string& user, const std::string& group) {
    const Outcome outcome = run({"chown", "-hR", user + ":" + group, path.string()});
    ASSERT_EQ(outcome.status, 0) << outcome.error;
}

std::string metadata(const std::string& mappings, const std::string& version, const std::string& language) {
    const std::string base = LARKSPUR_WTX_NAMESPACE;
    return "<application xmlns=\"" + base + "\" xmlns:php=\"" + base + "/php\" xmlns:cgi=\"" + base +
           "/cgi\" version=\"" + version + "\"><name>guestbook</name><version>1.0</version><release>1</release>" +
           "<configuration-script-language>" + language + "</configuration-script-language>" + mappings +
           "</application>";
}

DirectoryTest::DirectoryTest() : base(fs::temp_directory_path() / fs::unique_path("larkspur-%%%%%%%%")) {
    umask(022);
    fs::create_directories(base);
}

DirectoryTest::~DirectoryTest() {
    boost::system::error_code ignored;
    fs::remove_all(base, ignored);
}

void SandboxTest::SetUp() {
    const char* sandbox = std::getenv("LARKSPUR_SANDBOX");
    if (sandbox == nullptr || geteuid() != 0)
        GTEST_SKIP() << "needs root and the accounts of tests/support/sandbox";
    package = base / "package";
    vhost = fs::path(sandbox) / "vhosts" / "test.example";
    docroot = vhost / "httpdocs";
    fragments = vhost.parent_path() / "system" / vhost.filename() / "conf/siteapp.d";
    for (const fs::path& directory : {package, docroot, fragments.parent_path()})
        fs::create_directories(directory);
    giveTo(vhost, "sitea", "kroserv");
    prepare();
}

void SandboxTest::TearDown() {
    boost::system::error_code ignored;
    fs::remove_all(vhost, ignored);
    fs::remove_all(vhost.parent_path() / "system" / vhost.filename(), ignored);
}

void SandboxTest::put(const Words& entries) const {
    make(docroot, entries);
    giveTo(docroot, "sitea", "krocln");
}

Words SandboxTest::command(const std::string& name, const Words& changes) const {
    const std::string where = "--vhost-path=" + vhost.string();
    const std::string root = "--www-root=" + docroot.string();
    const std::string from = "--application-full-name=file:///" + package.string();
    const std::string document = "--metadata-file=" + (package / "APP-META.xml").string();
    const std::string place = "--application-subdirectory=.";
    const std::string file = "--config-file-name=app.conf";
    const std::string user = "--user-name=sitea";
    const std::map<std::string, Words> options{
        {"extract-application", {where, root, user, place, from, document}},
        {"delete-application", {where, root, user, place}},
        {"install-apache-conf", {where, root, place, document, file}},
        {"remove-apache-conf", {where, root, file}},
        {"run-application-script",
         {from, user, "--script-name=install", "--script-file-name=act", "--script-language=binary"}},
    };
    Words words = joined({LARKSPUR_PROGRAM, "--" + name}, options.at(name));
    for (const std::string& change : changes) {
        const std::string option = change.substr(0, change.find('=') + 1);
        std::erase_if(words, [&](const std::string& word) { return !option.empty() && word.starts_with(option); });
        words.push_back(change);
    }
    return words;
}

/// 77, for CTest, when nothing failed but a test could not be run; each says why.
int main(int argc, char** argv) {
    InitGoogleMock(&argc, argv);
    UnitTest::GetInstance()->listeners().Append(new Impatience);
    const int result = RUN_ALL_TESTS();
    return result == 0 && UnitTest::GetInstance()->skipped_test_count() > 0 ? 77 : result;
}
