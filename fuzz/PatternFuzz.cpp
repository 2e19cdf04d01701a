// What is judged to be affordable is: the C library compiles and matches it within libFuzzer's limits of time and
// memory. What is judged to be malformed the C library refuses.

#include <regex.h>

#include "Require.h"
#include "platform/pattern/Cost.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string pattern(Fuzz::Text(data, size));
  const Perenna::Pattern::Judgement judgement = Perenna::Pattern::Judge(pattern);
  if (judgement.refusal != nullptr) {
    return 0;
  }
  regex_t regex;
  const int status = regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NEWLINE);
  Fuzz::Require(status != 0 || !judgement.malformed, "the C library refuses what is malformed", pattern);
  if (status == 0) {
    regmatch_t match;
    for (const char* text : {"", "/articles/7", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab\naaaaaaaaaaaaaaaaaa"}) {
      (void)regexec(&regex, text, 1, &match, 0);
    }
    regfree(&regex);
  }
  return 0;
}
