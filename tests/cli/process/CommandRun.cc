#include "tests/cli/process/CommandRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

/// A file without a name that takes in what a process writes.
struct RunningCommand::Capture {
  Capture() : file(std::tmpfile()) {
    if (!file) throw std::runtime_error("no temporary file can be made");
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  ~Capture() { std::fclose(file); }

  std::string text() const {
    std::rewind(file);
    std::string all;
    char block[4096];
    for (std::size_t n; (n = std::fread(block, 1, sizeof block, file)) > 0;) all.append(block, n);
    return all;
  }

  std::FILE* file;
};

RunningCommand::RunningCommand(const std::vector<std::string>& arguments, const std::string& folder)
    : output(std::make_unique<Capture>()), errors(std::make_unique<Capture>()) {
  std::vector<std::string> words = {ZELK_COMMAND};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, fileno(output->file), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(errors->file), STDERR_FILENO);
  // A test that runs in the background may itself ignore SIGINT.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  posix_spawnattr_setsigdefault(&attributes, &interrupt);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int failure = posix_spawn(&process, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::runtime_error(words.front() + " cannot be started");
}

RunningCommand::~RunningCommand() {
  if (process == 0) return;
  send(SIGKILL);
  wait();
}

void RunningCommand::send(int signal) const { kill(process, signal); }

CommandRun RunningCommand::wait() {
  int state = 0;
  waitpid(process, &state, 0);
  process = 0;
  return {WIFEXITED(state) ? WEXITSTATUS(state) : -1, WIFSIGNALED(state) ? WTERMSIG(state) : 0,
          output->text(), errors->text()};
}

CommandRun runCommand(const std::vector<std::string>& arguments, const std::string& folder) {
  return RunningCommand(arguments, folder).wait();
}
