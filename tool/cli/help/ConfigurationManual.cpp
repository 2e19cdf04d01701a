#include "tool/cli/help/Manual.h"

#include "host/configuration/Keys.h"
#include "tool/cli/help/Roff.h"

namespace Tool {

namespace {

constexpr const char* Description =
    "One JSON object (RFC 8259), encoded in UTF-8, that perenna-access takes with --config: for serve the whole of it, "
    "for every other command the name of the database and of the group of administrators. Relative file names are "
    "relative to the file itself. An unknown key in the sections LocalAccessManager, Host and Sync is an error that "
    "names the nearest known one; other sections belong to other programs. \"perenna-access --config FILE serve "
    "--check\" only checks, and names the first key that is wrong, its value and what is accepted.";

/// A site behind a proxy on the same machine that runs as www-data.
constexpr const char* Example = R"({
  "LocalAccessManager": {"DatabaseFilename": "/var/lib/perenna-access/access.db"},
  "Host": {
    "Listen": ["unix:/run/perenna-access/host.sock"],
    "SocketGroup": "www-data",
    "Proxy": {"Peers": ["unix:www-data"]},
    "Log": {"Decisions": "/var/log/perenna-access/decisions.log"}
  }
})";

std::string KeyEntry(const Host::ConfigurationKey& key) {
  const std::string fallback = key.fallback.empty() ? " It must be given." : " Default: " + key.fallback + ".";
  return Entry(Bold(key.name), key.summary + " Accepted: " + key.accepted + "." + fallback);
}

} // namespace

std::string ConfigurationManual(const std::string& version) {
  std::string page = PageBeginning("perenna-access.json", 5, "configuration of the Perenna access host", version);
  page += ".SH DESCRIPTION\n" + Escaped(Description) + '\n';
  std::string section;
  for (const Host::ConfigurationKey& key : Host::ConfigurationKeys()) {
    if (key.section != section) {
      section = key.section;
      page += ".SH \"" + Escaped(section) + "\"\n";
    }
    page += KeyEntry(key);
  }
  page += ".SH EXAMPLE\n.EX\n" + Escaped(Example) + "\n.EE\n";
  page += ".SH FILES\n" + Entry(Bold("/etc/perenna-access/perenna-access.json"), "What the service reads");
  return page + ".SH \"SEE ALSO\"\n" + Bold("perenna-access-host") + "(8), " + Bold("perenna-access") + "(1)\n";
}

} // namespace Tool
