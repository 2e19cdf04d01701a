#include "tool/cli/help/CompletionScripts.h"

#include <map>

namespace Tool {

namespace {

// Each script runs "complete" of the program that stands on the command line, and reads "files" or "words", then a word
// a line with its description behind a tab. Words need no quoting: the program offers no others.

// Bash breaks words at more than blanks; what stands before the part that it completes ($2) stays as it is. Where file
// names are wanted, nothing is answered and readline completes them.
constexpr const char* Bash =
    R"script(# bash completion for perenna-access                           -*- shell-script -*-
_perenna_access() {
  local line="${COMP_LINE:0:COMP_POINT}" kind word kept program="${COMP_WORDS[0]/#~\//$HOME/}"
  kept="${line##*[[:space:]]}"
  kept="${kept%"$2"}"
  COMPREPLY=()
  {
    read -r kind
    [[ $kind == files ]] || compopt +o default 2>/dev/null
    while IFS=$'\t' read -r word _; do
      COMPREPLY+=("${word#"$kept"}")
    done
  } < <("$program" complete --line "$line" 2>/dev/null)
}
complete -o default -F _perenna_access perenna-access
)script";

constexpr const char* Zsh = R"script(#compdef perenna-access
_perenna-access() {
  local kind line
  local -a lines entries
  lines=("${(@f)$("${(Q)words[1]/#\~\//$HOME/}" complete -- "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)}")
  kind=$lines[1]
  if [[ $kind == files ]]; then
    compset -P '--*='
    _files
    return
  fi
  for line in "${(@)lines[2,-1]}"; do
    entries+=("${line%%$'\t'*}:${line#*$'\t'}")
  done
  _describe -t values value entries
}
if [[ $funcstack[1] == _perenna-access ]]; then
  _perenna-access "$@"
else
  compdef _perenna-access perenna-access
fi
)script";

constexpr const char* Fish = R"script(# fish completion for perenna-access
function __perenna_access_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l program (string replace -r '^~/' "$HOME/" -- $words[1])
    set -e words[1]
    set -l lines ($program complete -- $words "$current" 2>/dev/null)
    if test "$lines[1]" = files
        set -l kept (string match -r -- '^--[^=]*=' "$current")
        for path in (__fish_complete_path (string replace -- "$kept" '' "$current"))
            echo -- "$kept$path"
        end
        return
    end
    set -e lines[1]
    printf '%s\n' $lines
end
complete -c perenna-access -f -a '(__perenna_access_complete)'
)script";

const std::map<std::string, const char*>& Scripts() {
  static const std::map<std::string, const char*> scripts = {{"bash", Bash}, {"zsh", Zsh}, {"fish", Fish}};
  return scripts;
}

} // namespace

std::vector<std::string> CompletionShells() {
  std::vector<std::string> shells;
  for (const auto& [shell, script] : Scripts()) {
    shells.push_back(shell);
  }
  return shells;
}

std::string CompletionScript(const std::string& shell) {
  return Scripts().at(shell);
}

} // namespace Tool
