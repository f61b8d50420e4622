#include "brokerprocess.h"

#include "brokerlog.h"
#include "kmsgcapture.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <semaphore.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace brokertest {

namespace {

constexpr auto PATIENCE = std::chrono::seconds(20);
constexpr auto STEP = std::chrono::milliseconds(5);

bool listening(const testsupport::KmsgCapture& log) {
    for (const auto& line : brokerLines(log.lines())) {
        if (line.ends_with(" Listening on /var/volatile/message-broker.socket")) {
            return true;
        }
    }
    return false;
}

} // namespace

std::vector<std::string> commandLine(const std::string& emulator, const std::string& program) {
    std::vector<std::string> words;
    std::istringstream emulatorWords(emulator);
    for (std::string word; emulatorWords >> word;) {
        words.push_back(word);
    }
    words.push_back(program);
    return words;
}

std::vector<char*> argvOf(std::vector<std::string>& words) {
    std::vector<char*> argv;
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    return argv;
}

BrokerProcess::BrokerProcess(unsigned descriptorLimit) {
    testsupport::KmsgCapture log;
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    std::vector<std::string> words = commandLine(BROKER_EMULATOR, BROKER_PROGRAM);
    std::vector<char*> argv = argvOf(words);
    pid = fork();
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        dup2(pipeFds[1], STDERR_FILENO);
        if (descriptorLimit != 0) {
            rlimit limit{descriptorLimit, descriptorLimit};
            setrlimit(RLIMIT_NOFILE, &limit);
        }
        execvp(argv[0], argv.data());
        _exit(127);
    }
    ::close(pipeFds[1]);
    errorPipe = pipeFds[0];
    auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (!listening(log) && running() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(STEP);
    }
}

BrokerProcess::~BrokerProcess() {
    if (running()) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    ::close(errorPipe);
}

bool BrokerProcess::running() {
    if (status != -1) {
        return false;
    }
    int result = waitpid(pid, &status, WNOHANG);
    if (result == 0) {
        status = -1;
        return true;
    }
    return false;
}

int BrokerProcess::stop(int signal) {
    if (running()) {
        kill(pid, signal);
    }
    return wait();
}

int BrokerProcess::wait() {
    auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (running() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(STEP);
    }
    return status;
}

std::string BrokerProcess::errorOutput() {
    std::string text;
    char buffer[256];
    int flags = fcntl(errorPipe, F_GETFL);
    fcntl(errorPipe, F_SETFL, flags | O_NONBLOCK);
    ssize_t got;
    while ((got = ::read(errorPipe, buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

testsupport::ChildResult runBroker(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = commandLine(BROKER_EMULATOR, BROKER_PROGRAM);
    words.insert(words.end(), arguments.begin(), arguments.end());
    return testsupport::runInChild([&words] {
        std::vector<char*> argv = argvOf(words);
        execvp(argv[0], argv.data());
        return 127;
    });
}

bool isSocket(const char* path) {
    struct stat status {};
    return ::stat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

bool semaphoreExists(const char* name) {
    struct stat status {};
    return ::stat((std::string("/dev/shm/sem.") + (name + 1)).c_str(), &status) == 0;
}

int semaphoreValue(const char* name) {
    sem_t* semaphore = sem_open(name, 0);
    if (semaphore == SEM_FAILED) {
        return -1;
    }
    int value = -1;
    sem_getvalue(semaphore, &value);
    sem_close(semaphore);
    return value;
}

} // namespace brokertest
