// framework-server MODULE DATABASE: a server that knows its modules only as files to load. Asks the module a few
// questions and prints the answers; the modules' log lines go to standard error, in the framework's own form.

#include <array>
#include <iostream>

#include <dlfcn.h>

#include "framework.h"

namespace {

void Log(const char* module, const char* line) {
  std::cerr << "framework: " << module << ": " << line << '\n';
}

} // namespace

int main(int argc, char* argv[]) {
  if (argc != 3) {
    std::cerr << "usage: framework-server MODULE DATABASE\n";
    return 2;
  }
  // RTLD_LOCAL: what the module brings along stays its own, and meets no other module's symbols. It is never unloaded:
  // the access manager is there for the rest of the process.
  void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  const void* const symbol = library == nullptr ? nullptr : dlsym(library, FRAMEWORK_MODULE_SYMBOL);
  if (symbol == nullptr) {
    std::cerr << dlerror() << '\n'; // NOLINT(concurrency-mt-unsafe): one thread
    return 1;
  }
  const auto& module = *static_cast<const framework_module*>(symbol);
  const framework framework = {argv[2], Log};
  if (module.start(&framework) != 0) {
    std::cerr << module.name << " cannot be used\n";
    return 1;
  }
  constexpr std::array<std::array<const char*, 2>, 3> Questions = {
      {{"GET", "/documents/7"}, {"DELETE", "/documents/7"}, {"GET", "/elsewhere"}}};
  for (const auto& [method, target] : Questions) {
    std::cout << method << ' ' << target << " is "
              << (module.allows("alice", "correct horse", method, target) == 1 ? "allowed" : "refused") << '\n';
  }
}
