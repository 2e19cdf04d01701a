#include "tool/command/Commands.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include <openssl/evp.h>

#include "directory/credential/Credential.h"
#include "directory/text/Text.h"
#include "tool/DirectoryNames.h"
#include "tool/cli/option/CredentialOptions.h"
#include "tool/probe/Prober.h"
#include "tool/terminal/Prompt.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

constexpr std::size_t ShownRequests = 3; // of one kind of hole; --json has all

struct ProxyCheckOptions {
  std::string url;
  std::string user;
  CredentialOptions password;
  std::string open_target;
  std::string protected_target;
  std::string certificate_file;
  std::string authorities;
  std::string proxy;
  int wait_seconds = 3;
};

/// Takes what goes into request lines unchanged: a path alone, without anything that would end the line.
std::string Target(const char* option, const std::string& text) {
  const bool is_visible = std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7f'; });
  if (text.empty() || text.front() != '/' || !is_visible || text.find_first_of("?#") != std::string::npos) {
    throw Failure(Failure::Kind::Input, std::string(option) + ": " + Quoted(text) +
                                            " is not a path: \"/\", then visible ASCII, no \"?\" or \"#\"");
  }
  return text;
}

std::string BasicCredentials(const std::string& user, const Secret& password) {
  std::string pair = user + ':' + password.Text();
  std::string base64(4 * ((pair.size() + 2) / 3) + 1, '\0');
  const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()),
                                   reinterpret_cast<const unsigned char*>(pair.data()), static_cast<int>(pair.size()));
  base64.resize(static_cast<std::size_t>(size));
  std::fill(pair.begin(), pair.end(), '\0');
  return "Basic " + base64;
}

/// The file's text; a certificate is public.
std::string CertificateText(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  if (!in) {
    throw Failure(Failure::Kind::Input, "--certificate: " + Quoted(file) + " cannot be read");
  }
  try {
    ThumbprintFromPem(text.str());
  } catch (const Failure& failure) {
    throw Failure(Failure::Kind::Input, "--certificate: " + Quoted(file) + ": " + failure.what());
  }
  return text.str();
}

ProbeTask TaskOf(const ProxyCheckOptions& options) {
  ProbeTask task;
  task.user = options.user;
  task.open_target = Target("--open", options.open_target);
  task.protected_target = Target("--protected", options.protected_target);
  if (!options.certificate_file.empty()) {
    task.certificate_pem = CertificateText(options.certificate_file);
  }
  const bool has_password = options.password.IsGiven();
  if (options.user.empty() != !has_password) {
    throw Failure(Failure::Kind::Input, has_password ? "whose password? Give --user too"
                                                     : "which password? Give --password-stdin or --password-file too");
  }
  if (has_password) {
    if (const std::string fault = UserIdFault(options.user, true); !fault.empty()) {
      throw Failure(Failure::Kind::Input, "--user: " + Quoted(options.user) + ' ' + fault);
    }
    task.authorization = BasicCredentials(
        options.user, ReadPasswordFile(options.password.password_stdin ? "-" : options.password.password_file));
  }
  return task;
}

std::vector<std::string> ShownProxies(const ProxyCheckOptions& options) {
  return options.proxy.empty() ? KnownProxies() : std::vector<std::string>{options.proxy};
}

/// The findings by kind, in the order in which kinds were found first.
std::vector<std::vector<Finding>> ByKind(const std::vector<Finding>& findings) {
  std::vector<std::vector<Finding>> kinds;
  for (const Finding& finding : findings) {
    const auto kind = std::find_if(kinds.begin(), kinds.end(), [&finding](const std::vector<Finding>& others) {
      return others.front().hole == finding.hole;
    });
    kind == kinds.end() ? kinds.push_back({finding}) : kind->push_back(finding);
  }
  return kinds;
}

Json FindingsJson(const std::vector<Finding>& findings, const std::vector<std::string>& proxies) {
  Json kinds = Json::array();
  for (const std::vector<Finding>& kind : ByKind(findings)) {
    const HoleFacts& facts = FactsOf(kind.front().hole);
    Json requests = Json::array();
    for (const Finding& finding : kind) {
      requests.push_back({{"request", JsonText(finding.request)}, {"seen", JsonText(finding.seen)}});
    }
    Json entry = {{"hole", facts.name}, {"meaning", facts.meaning}, {"requests", std::move(requests)}};
    for (const std::string& proxy : proxies) {
      entry["remedies"][proxy] = RemedyFor(facts.hole, proxy);
    }
    kinds.push_back(std::move(entry));
  }
  return kinds;
}

void PrintFindings(const std::vector<Finding>& findings, const std::string& heading, Colour colour,
                   const std::vector<std::string>& proxies) {
  for (const std::vector<Finding>& kind : ByKind(findings)) {
    const HoleFacts& facts = FactsOf(kind.front().hole);
    std::cout << InColour(heading, colour) << ' ' << facts.name << ": " << facts.meaning << '\n';
    for (std::size_t i = 0; i < std::min(kind.size(), ShownRequests); ++i) {
      std::cout << "    " << Shown(kind[i].request, Backslash::Kept) << ": " << Shown(kind[i].seen) << '\n';
    }
    if (kind.size() > ShownRequests) {
      std::cout << "    and " << Count(kind.size() - ShownRequests, "request") << " more\n";
    }
    for (const std::string& proxy : proxies) {
      std::cout << "  " << proxy << ": " << RemedyFor(facts.hole, proxy) << '\n';
    }
    std::cout << '\n';
  }
}

ExitStatus RunProxyCheck(const Context& context, const ProxyCheckOptions& options) {
  ProbeTask task = TaskOf(options);
  const ProbedSite site(options.url, options.authorities, std::chrono::seconds(options.wait_seconds));
  Prober prober(site, std::move(task));
  const bool is_guarded = prober.IsGuarded();
  for (const auto probe : {ProbeCredentials, ProbePaths, ProbeQuestionFields, ProbeApplicationFields, ProbeFraming}) {
    if (is_guarded) {
      probe(prober);
    }
  }

  const std::size_t holes = ByKind(prober.Holes()).size();
  if (context.WantsJson()) {
    PrintJson({{"url", JsonText(options.url)},
               {"requests", prober.Requests()},
               {"holes", FindingsJson(prober.Holes(), ShownProxies(options))},
               {"unclear", FindingsJson(prober.Unclears(), {})}});
  } else {
    PrintFindings(prober.Holes(), "open", Colour::Red, ShownProxies(options));
    PrintFindings(prober.Unclears(), "unclear", Colour::Bold, {});
    std::cout << Count(prober.Requests(), "request") << ", " << (holes == 0 ? "no hole" : Count(holes, "kind of hole"))
              << " found.\n";
  }
  return holes == 0 ? ExitStatus::Done : ExitStatus::Refused;
}

} // namespace

void AddProxyCheckCommand(CLI::App& app, Context& context) {
  CLI::App& check = AddCommand(
      app, "proxy-check",
      "Try a guarded site for holes in its proxy's configuration\n"
      "Sends some two hundred requests to a live site that a proxy guards with this program: paths in other spellings, "
      "fields that pass for the proxy's own, credentials twice, hidden requests. Reports what got through, and the "
      "line "
      "of configuration that closes it: 1 then, 0 for no hole. What the application is told shows only where the "
      "answer "
      "to --open tells it. Use it on sites of your own: a hole that is there is gone through, with GET.",
      "perenna-access proxy-check http://127.0.0.1:8480 --user alice --password-file alice.password \\\n"
      "    --open /articles/7 --protected /secret --proxy nginx");
  auto options = std::make_shared<ProxyCheckOptions>();
  check.add_option("URL", options->url, "The site: http://HOST[:PORT] or https://HOST[:PORT]")->required();
  check.add_option("--open", options->open_target, "A path that the user may GET; its answer is always the same")
      ->type_name("PATH")
      ->required();
  check.add_option("--protected", options->protected_target, "A path that the user may not GET")
      ->type_name("PATH")
      ->required();
  check.add_option("--user", options->user, "As whom; without it requests have no credentials")->type_name("USER");
  options->password.AddPasswordTo(check);
  check
      .add_option("--certificate", options->certificate_file,
                  "A certificate of somebody who may GET --open, PEM: it is claimed, without its key")
      ->type_name("FILE");
  check
      .add_option("--authorities", options->authorities,
                  "Whom to trust for https, certificates in PEM; otherwise the system's")
      ->type_name("FILE");
  check.add_option("--proxy", options->proxy, "Show remedies for this proxy alone")
      ->check(CLI::IsMember(KnownProxies()));
  check.add_option("--wait", options->wait_seconds, "Seconds to wait for an answer at most")
      ->capture_default_str()
      ->check(CLI::Range(1, 60));
  context.OnRun(check, [&context, options] { return RunProxyCheck(context, *options); });
}

} // namespace Tool
