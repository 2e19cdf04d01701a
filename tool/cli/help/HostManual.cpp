#include "tool/cli/help/Manual.h"

#include <array>
#include <utility>

#include "tool/cli/help/Roff.h"

namespace Tool {

namespace {

struct Row {
  const char* term;
  const char* meaning;
};

constexpr const char* Description =
    "Answers a reverse proxy's question, for each request, whether its caller may do it, from a directory of users, "
    "groups and filters in one SQLite file. The site behind the proxy needs no change: it learns in the fields "
    "Remote-User and Remote-Groups whose request it is. The configuration says where the host listens, whose questions "
    "it answers, and what it writes down.";

constexpr std::array<Row, 6> Paths = {{
    {"/auth", "The question of nginx (auth_request), Traefik, Caddy and HAProxy: 200, 401, 403 or 503; "
              "X-Access-Outcome says why"},
    {"/envoy/...", "The same for Envoy's ext_authz over HTTP with path_prefix /envoy"},
    {"/access/", "Administration over HTTP, for members of the group of administrators"},
    {"/healthz", "200 while the process serves; for anyone"},
    {"/readyz", "200 while a decision can be made; for anyone"},
    {"/metrics", "Figures for Prometheus; for loopback peers and Unix-domain peers that are no proxies, and for "
                 "administrators"},
}};

constexpr std::array<Row, 3> Signals = {{
    {"SIGTERM, SIGINT", "Take no more connections, answer what is under way, end with 0 within RequestSeconds"},
    {"SIGHUP", "Open log files and TLS files anew"},
    {"SIGPIPE", "Ignored"},
}};

constexpr std::array<Row, 3> Statuses = {{
    {"0", "Ended by a signal"},
    {"2", "The configuration cannot be used, or there is no directory yet; the message names the key, or the command "
          "that makes the directory. Starting again changes nothing"},
    {"3", "The database file was replaced or removed, or the system failed: start again"},
}};

constexpr std::array<Row, 5> Files = {{
    {"/etc/perenna-access/perenna-access.json", "The configuration of the service"},
    {"/var/lib/perenna-access/access.db", "The directory. Never copy over it: see backup and restore in "
                                          "perenna-access(1)"},
    {"/run/perenna-access/host.sock", "Where the proxy asks"},
    {"/var/log/perenna-access/decisions.log", "A JSON line for each decision"},
    {"/usr/share/doc/perenna-access/examples", "Configurations of proxies"},
}};

constexpr const char* FirstStart =
    R"(perenna-access --config /etc/perenna-access/perenna-access.json init --owner perenna-access
systemctl start perenna-access)";

template <std::size_t Count> std::string Section(const char* heading, const std::array<Row, Count>& rows) {
  std::string text = std::string(".SH ") + heading + '\n';
  for (const Row& row : rows) {
    text += Entry(Bold(row.term), row.meaning);
  }
  return text;
}

} // namespace

std::string HostManual(const std::string& version) {
  return PageBeginning("perenna-access-host", 8, "access control for any site behind a reverse proxy", version) +
         ".SH SYNOPSIS\n" + Bold("perenna-access") + " " + Bold("--config") + " \\fIFILE\\fR " + Bold("serve") + " [" +
         Bold("--check") + "]\n.PP\n" + Bold("systemctl start perenna-access") + "\n.SH DESCRIPTION\n" +
         Escaped(Description) + "\n.SH \"FIRST START\"\n.EX\n" + Escaped(FirstStart) + "\n.EE\n" +
         Section("PATHS", Paths) + Section("SIGNALS", Signals) + Section("\"EXIT STATUS\"", Statuses) +
         Section("FILES", Files) + ".SH \"SEE ALSO\"\n" + Bold("perenna-access.json") + "(5), " +
         Bold("perenna-access") + "(1), " + Bold("systemctl") + "(1)\n";
}

} // namespace Tool
