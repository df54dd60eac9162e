#include "tests/cli/CommandRun.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace {

std::string contentOf(std::FILE* file) {
  std::rewind(file);
  std::string all;
  char block[4096];
  for (std::size_t n; (n = std::fread(block, 1, sizeof block, file)) > 0;) all.append(block, n);
  return all;
}

}  // namespace

RunningCommand::RunningCommand(const std::vector<std::string>& arguments, const std::string& folder,
                               const std::string& input) {
  if (!output || !errors) throw std::runtime_error("no temporary file can be made");
  std::vector<std::string> words = {ZELK_COMMAND};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  process = fork();
  if (process < 0) throw std::runtime_error("no process can be made");
  if (process > 0) return;
  if (!folder.empty() && chdir(folder.c_str()) != 0) _exit(127);
  dup2(open(input.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
  dup2(fileno(output.get()), STDOUT_FILENO);
  dup2(fileno(errors.get()), STDERR_FILENO);
  std::signal(SIGINT, SIG_DFL);  // a test that runs in the background may itself ignore it
  execv(argv[0], argv.data());
  _exit(127);
}

RunningCommand::~RunningCommand() {
  if (process == 0) return;
  send(SIGKILL);
  wait();
}

void RunningCommand::send(int signal) const { kill(process, signal); }

std::size_t RunningCommand::outputSize() const {
  struct stat status {};
  fstat(fileno(output.get()), &status);
  return static_cast<std::size_t>(status.st_size);
}

CommandRun RunningCommand::wait() {
  int state = 0;
  waitpid(process, &state, 0);
  process = 0;
  return {WIFEXITED(state) ? WEXITSTATUS(state) : -1, WIFSIGNALED(state) ? WTERMSIG(state) : 0,
          contentOf(output.get()), contentOf(errors.get())};
}

CommandRun runCommand(const std::vector<std::string>& arguments, const std::string& folder,
                      const std::string& input) {
  return RunningCommand(arguments, folder, input).wait();
}
