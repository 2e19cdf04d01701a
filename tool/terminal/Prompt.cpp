#include "tool/terminal/Prompt.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "directory/text/Text.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

constexpr char CtrlC = 0x03;
constexpr char CtrlD = 0x04;
constexpr char CtrlU = 0x15;
constexpr char Backspace = 0x08;
constexpr char Rubout = 0x7f;

constexpr int Rounds = 3; // tries to type the same password twice

class Descriptor {
public:
  explicit Descriptor(int number) noexcept : m_Number(number) {}
  ~Descriptor() {
    if (m_Number > STDERR_FILENO) {
      close(m_Number);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Number() const noexcept { return m_Number; }

private:
  int m_Number;
};

volatile std::sig_atomic_t s_ended = 0; // by a signal that came while the terminal was silent

/// Holds back the signals that end a process, except while the terminal is waited for: its settings come first.
class HeldSignals {
public:
  HeldSignals() noexcept {
    s_ended = 0;
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : Ending) {
      sigaddset(&held, signal);
    }
    pthread_sigmask(SIG_BLOCK, &held, &m_Before);
    struct sigaction action = {};
    action.sa_handler = [](int) { s_ended = 1; };
    for (std::size_t i = 0; i < Ending.size(); ++i) {
      sigaction(Ending.at(i), &action, &m_Actions.at(i));
    }
  }
  ~HeldSignals() {
    for (std::size_t i = 0; i < Ending.size(); ++i) {
      sigaction(Ending.at(i), &m_Actions.at(i), nullptr);
    }
    pthread_sigmask(SIG_SETMASK, &m_Before, nullptr);
  }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  /// Waits until the descriptor can be read; false when a signal came.
  bool WaitFor(int descriptor) const noexcept {
    pollfd input = {descriptor, POLLIN, 0};
    while (s_ended == 0 && ppoll(&input, 1, nullptr, &m_Before) < 0 && errno == EINTR) {
    }
    return s_ended == 0;
  }

private:
  static constexpr std::array<int, 4> Ending = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

  sigset_t m_Before{};
  std::array<struct sigaction, Ending.size()> m_Actions{};
};

/// The controlling terminal, whatever standard input is.
class Terminal {
public:
  Terminal() : m_Descriptor(open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    if (m_Descriptor.Number() < 0) {
      throw Failure(Failure::Kind::Input, "there is no terminal to ask for a password at; give --password-stdin or "
                                          "--password-file FILE");
    }
  }

  void Print(const std::string& text) const {
    static_cast<void>(write(m_Descriptor.Number(), text.data(), text.size()) == 0); // a lost prompt is seen by the user
  }

  [[noreturn]] void Cancel() const {
    Print("\n");
    throw Cancelled();
  }

  /// Reads a byte; throws `Cancelled` at the end of the input, or when a signal comes.
  char Read(const HeldSignals& signals) const {
    if (!signals.WaitFor(Number())) {
      Cancel();
    }
    char byte = 0;
    ssize_t count = 0;
    do {
      count = read(m_Descriptor.Number(), &byte, 1);
    } while (count < 0 && errno == EINTR);
    if (count != 1) {
      Cancel();
    }
    return byte;
  }

  int Number() const noexcept { return m_Descriptor.Number(); }

private:
  Descriptor m_Descriptor;
};

/// Switches echo, line editing and the terminal's signals off: Ctrl-C arrives as a byte. However the process is asked
/// to end, echo is back before it does.
class WithoutEcho {
public:
  explicit WithoutEcho(const Terminal& terminal) : m_Terminal(terminal) {
    if (tcgetattr(terminal.Number(), &m_Before) != 0) {
      throw Failure(Failure::Kind::System,
                    std::string("cannot read the terminal's settings: ") + std::generic_category().message(errno));
    }
    termios silent = m_Before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
    silent.c_cc[VMIN] = 1;
    silent.c_cc[VTIME] = 0;
    tcsetattr(terminal.Number(), TCSAFLUSH, &silent);
  }
  ~WithoutEcho() { tcsetattr(m_Terminal.Number(), TCSAFLUSH, &m_Before); }
  WithoutEcho(const WithoutEcho&) = delete;
  WithoutEcho& operator=(const WithoutEcho&) = delete;

  char Read() const { return m_Terminal.Read(m_Signals); }

private:
  const HeldSignals m_Signals;
  const Terminal& m_Terminal;
  termios m_Before{};
};

Secret ReadSilently(const Terminal& terminal, const std::string& prompt) {
  const WithoutEcho silence(terminal);
  terminal.Print(prompt);
  Secret secret;
  for (;;) {
    const char byte = silence.Read();
    switch (byte) {
    case '\r':
    case '\n':
      terminal.Print("\n");
      return secret;
    case CtrlC:
    case CtrlD:
      terminal.Cancel();
    case CtrlU:
      secret.Clear();
      break;
    case Backspace:
    case Rubout:
      secret.RemoveLast();
      break;
    default:
      if (byte >= 0 && byte < ' ') { // an arrow key sends some, and nobody could type them again elsewhere
        terminal.Print("\n");
        throw Failure(Failure::Kind::Input, "a key was pressed that is no character of a password");
      }
      if (!secret.Append(byte)) {
        throw Failure(Failure::Kind::Input,
                      "the password is longer than " + std::to_string(Secret::MaximumBytes) + " bytes");
      }
    }
  }
}

} // namespace

void ProtectProcess() noexcept {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
#ifndef __SANITIZE_ADDRESS__ // whose search for leaks traces the process
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
#endif
}

bool HasTerminal() noexcept {
  const Descriptor terminal(open("/dev/tty", O_RDWR | O_CLOEXEC));
  return terminal.Number() >= 0;
}

Secret AskForNewPassword(const std::string& whose) {
  const Terminal terminal;
  for (int round = 0; round < Rounds; ++round) {
    Secret first = ReadSilently(terminal, "New password for " + Quoted(whose) + ": ");
    if (first.Text().empty()) {
      throw Failure(Failure::Kind::Input, "the password is empty");
    }
    const Secret second = ReadSilently(terminal, "The same once more: ");
    if (first.Text() == second.Text()) {
      return first;
    }
    terminal.Print("They differ.\n");
  }
  throw Failure(Failure::Kind::Input, "the two passwords differed " + std::to_string(Rounds) + " times");
}

Secret AskForPassword(const std::string& prompt) {
  const Terminal terminal;
  return ReadSilently(terminal, prompt);
}

bool AskYesOrNo(const std::string& question, bool otherwise) {
  const Terminal terminal;
  const HeldSignals signals;
  for (;;) {
    terminal.Print(question + (otherwise ? " [Y/n] " : " [y/N] "));
    std::string answer;
    for (char byte = terminal.Read(signals); byte != '\n'; byte = terminal.Read(signals)) {
      answer += byte;
    }
    if (answer.empty()) {
      return otherwise;
    }
    if (answer == "y" || answer == "Y" || answer == "yes") {
      return true;
    }
    if (answer == "n" || answer == "N" || answer == "no") {
      return false;
    }
    terminal.Print("Answer y or n.\n");
  }
}

Secret ReadPasswordFile(const std::string& path) {
  const bool standard_input = path == "-";
  const std::string name = standard_input ? "standard input" : "the password file " + Quoted(path);
  const Descriptor source(standard_input ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (source.Number() < 0) {
    throw Failure(Failure::Kind::Input, "cannot open " + name + ": " + std::generic_category().message(errno));
  }
  Secret secret;
  bool ended = false;
  for (;;) {
    char byte = 0;
    const ssize_t count = read(source.Number(), &byte, 1);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      throw Failure(Failure::Kind::Input, "cannot read " + name + ": " + std::generic_category().message(errno));
    }
    if (count == 0) {
      break;
    }
    if (ended) {
      throw Failure(Failure::Kind::Input, name + " holds more than one line; a password is one line");
    }
    if (byte == '\0') {
      throw Failure(Failure::Kind::Input, "the password in " + name + " holds a NUL byte");
    }
    if (byte == '\n') {
      ended = true;
    } else if (!secret.Append(byte)) {
      throw Failure(Failure::Kind::Input,
                    "the password in " + name + " is longer than " + std::to_string(Secret::MaximumBytes) + " bytes");
    }
  }
  if (ended && !secret.Text().empty() && secret.Text().back() == '\r') { // a line end of another system
    secret.RemoveLast();
  }
  if (secret.Text().empty()) {
    throw Failure(Failure::Kind::Input, "the password in " + name + " is empty");
  }
  return secret;
}

} // namespace Tool
