#include "host/configuration/Keys.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <utility>

#include "directory/Failure.h"
#include "directory/text/Vocabulary.h"
#include "host/configuration/Stores.h"
#include "host/configuration/Values.h"

namespace Host {

namespace {

bool AddListener(Configuration& configuration, const std::string& text) {
  constexpr std::size_t LongestSocketPath = 107; // sun_path less its terminator
  ListenAddress& address = configuration.listen.emplace_back();
  try {
    address = ParseListenAddress(text);
  } catch (const AccessDirectory::Failure&) {
    return false; // the table says what is accepted
  }
  if (address.kind == ListenAddress::Kind::Unix) {
    address.path = Absolute(configuration, address.path);
  }
  return address.path.size() <= LongestSocketPath;
}

bool AddPeer(Configuration& configuration, const std::string& text) {
  return ParsePeer(text, configuration.proxy.peers.emplace_back());
}

bool AddAllowedSpelling(Configuration& configuration, const std::string& text) {
  configuration.target_allows.push_back(text);
  return IsAllowedSpelling(text);
}

bool IsGroupId(const std::string& text) {
  return AccessDirectory::IsGroupId(text);
}

constexpr const char* WholeByteCount = "a whole number of bytes from 0 to 1099511627776";
constexpr std::uint64_t MostBytes = 1ULL << 40U;
constexpr const char* OptionalFile = "the name of a file, or \"\"";

// A lambda that names the member; the table would be unreadable with its type spelled out each time.
#define AT(member) ([](Configuration & c) -> auto& { return c.member; })

std::vector<ConfigurationKey> ModuleKeys() {
  const std::string section = "LocalAccessManager";
  return {
      {section, "DatabaseFilename", "", "the name of a file", "The access database.", FileName(AT(database_filename))},
      {section, "AuthRealm", "\"Perenna\"", "1 to 200 printable ASCII characters without quotes and backslashes",
       "What browsers show when they ask for a password.", Text(AT(auth_realm), IsRealm)},
      {section, "AnonymousUserId", "\"\"", "a user id without control characters and outer spaces, or \"\"",
       "The user that a request without credentials stands for; \"\": such a request is refused.",
       OptionalText(AT(anonymous_user_id), IsCarriedUserId)},
      {section, "PathFilterBypass", "\"\"",
       "an extended regular expression that begins with \"^\" and has no \"|\" outside parentheses, or \"\"",
       "Paths that everybody may use, without a look at credentials.",
       OptionalText(AT(path_filter_bypass), IsBypassPattern)},
  };
}

std::vector<ConfigurationKey> HostKeys() {
  const std::string section = "Host";
  return {
      {section, "Listen", "",
       "a list of \"unix:PATH\" (a path of at most 107 bytes), \"ADDRESS:PORT\" and \"https:ADDRESS:PORT\" with "
       "numeric addresses, IPv6 in brackets",
       "Where requests are taken; port 0 takes a free one.", Texts(AddListener)},
      {section, "PlainText", "false", "true or false", "Permits plain HTTP on addresses that are not loopback.",
       Flag(AT(plain_text))},
      {section, "SocketGroup", "\"\"", "a group of the system, or \"\"",
       "The group that Unix-domain sockets get, which may connect (mode 0660).",
       OptionalText(AT(socket_group), IsSystemGroup)},
      {section, "Threads", "0", "a whole number from 0 to 256", "Worker threads; 0: one a core.",
       WholeNumber<unsigned>(AT(threads), 0, 256)},
      {section, "Administrators", "\"administrators\"", "a group id: ASCII letters, digits, \"_\" and \"-\"",
       "The group whose members may administer.", Text(AT(administrators), IsGroupId)},
      {section, "Target", "\"path\"", "\"path\" or \"path-and-query\"", "The part of a target that filters see.",
       Choice<TargetPart>(AT(target), {{"path", TargetPart::Path}, {"path-and-query", TargetPart::PathAndQuery}})},
      {section, "TargetAllows", "[]",
       "a list of \";\" and escapes such as \"%2F\", upper-case, of neither a control byte nor a dot",
       "Exact spellings that paths may hold although the normal form does not.", Texts(AddAllowedSpelling)},
  };
}

std::vector<ConfigurationKey> ProxyKeys() {
  const std::string section = "Host.Proxy";
  return {
      {section, "Peers", "[]", "a list of \"unix\", \"unix:USER\" and networks such as \"10.0.0.0/8\"",
       "Whose forwarded header fields count.", Texts(AddPeer)},
      {section, "Headers", "\"original\"", "\"original\" or \"forwarded\"",
       "The family of fields that hold method and target: X-Original-Method and X-Original-URI, or X-Forwarded-Method "
       "and X-Forwarded-Uri.",
       Choice<HeaderFamily>(AT(proxy.headers),
                            {{"original", HeaderFamily::Original}, {"forwarded", HeaderFamily::Forwarded}})},
      {section, "ClientAddress", "\"X-Real-IP\"", "the name of a header field, or \"\"",
       "The field that holds the client's address.", OptionalText(AT(proxy.client_address), IsFieldName)},
      {section + ".Certificate", "Name", "\"\"", "the name of a header field, or \"\"",
       "The field in which the proxy hands over the client's certificate.",
       OptionalText(AT(proxy.certificate_name), IsFieldName)},
      {section + ".Certificate", "Format", "\"rfc9440\"", "\"rfc9440\", \"pem-escaped\", \"der-base64\" or \"xfcc\"",
       "Its form.",
       Choice<CertificateForm>(AT(proxy.certificate_format), {{"rfc9440", CertificateForm::Rfc9440},
                                                              {"pem-escaped", CertificateForm::PemEscaped},
                                                              {"der-base64", CertificateForm::DerBase64},
                                                              {"xfcc", CertificateForm::Xfcc}})},
  };
}

std::vector<ConfigurationKey> TlsAndDecisionKeys() {
  return {
      {"Host.TLS", "Certificate", "\"\"", OptionalFile, "The certificate chain of https listeners, PEM.",
       OptionalFileName(AT(tls.certificate))},
      {"Host.TLS", "Key", "\"\"", OptionalFile, "Its private key, PEM.", OptionalFileName(AT(tls.key))},
      {"Host.TLS", "ClientCertificates", "\"none\"", "\"none\" or \"optional\"",
       "Whether clients are asked for a certificate; the directory's thumbprints decide what it is worth.",
       Choice<ClientCertificates>(AT(tls.client_certificates),
                                  {{"none", ClientCertificates::None}, {"optional", ClientCertificates::Optional}})},
      {"Host.Cache", "Decisions", "100000", "a whole number from 0 to 100000000",
       "How many decisions are remembered until the directory changes; 0: none.",
       WholeNumber<std::uint64_t>(AT(cached_decisions), 0, 100'000'000)},
      {"Host.Throttle", "Failures", "5", "a whole number from 1 to 1000000",
       "Failed logins of an id from an address after which it has to wait.",
       WholeNumber<unsigned>(AT(throttle.failures), 1, 1'000'000)},
      {"Host.Throttle", "WindowSeconds", "60", "a whole number from 1 to 86400", "How long a failure counts.",
       WholeNumber<unsigned>(AT(throttle.window_seconds), 1, 86'400)},
      {"Host.Throttle", "MaximumDelaySeconds", "30", "a whole number from 1 to 86400", "The longest wait.",
       WholeNumber<unsigned>(AT(throttle.maximum_delay_seconds), 1, 86'400)},
  };
}

std::vector<ConfigurationKey> LogAndLimitKeys() {
  return {
      {"Host.Log", "Access", "\"\"", OptionalFile, "A line for each request.", OptionalFileName(AT(log.access))},
      {"Host.Log", "Decisions", "\"\"", OptionalFile, "A line for each decision.", OptionalFileName(AT(log.decisions))},
      {"Host.Log", "Administration", "\"\"", OptionalFile, "A line for each change.",
       OptionalFileName(AT(log.administration))},
      {"Host.Log", "Level", "\"notice\"", "\"debug\", \"info\", \"notice\", \"warning\" or \"error\"",
       "The least of the program's own lines that go to standard error.",
       Choice<Tarn::LogType_t>(AT(log.level), {{"debug", Tarn::LOG_DEBUG},
                                               {"info", Tarn::LOG_INFO},
                                               {"notice", Tarn::LOG_NOTICE},
                                               {"warning", Tarn::LOG_WARN},
                                               {"error", Tarn::LOG_ERROR}})},
      {"Host.Limits", "HeaderBytes", "32768", "a whole number of bytes from 1024 to 1048576",
       "The longest head of a request.", WholeNumber<std::uint64_t>(AT(limits.header_bytes), 1024, 1'048'576)},
      {"Host.Limits", "BodyBytes", "1048576", WholeByteCount, "The longest body of a request.",
       WholeNumber<std::uint64_t>(AT(limits.body_bytes), 0, MostBytes)},
      {"Host.Limits", "ImportBytes", "268435456", WholeByteCount, "The longest body of an import.",
       WholeNumber<std::uint64_t>(AT(limits.import_bytes), 0, MostBytes)},
      {"Host.Limits", "Connections", "10000", "a whole number from 1 to 1000000",
       "Open connections; beyond them idle ones are closed first.",
       WholeNumber<unsigned>(AT(limits.connections), 1, 1'000'000)},
      {"Host.Limits", "IdleSeconds", "60", "a whole number from 1 to 86400", "How long a connection may be idle.",
       WholeNumber<unsigned>(AT(limits.idle_seconds), 1, 86'400)},
      {"Host.Limits", "RequestSeconds", "10", "a whole number from 1 to 3600",
       "How long a request and its answer may take.", WholeNumber<unsigned>(AT(limits.request_seconds), 1, 3600)},
  };
}

/// The host reads only what it needs of these to know how old the directory may be; the agent reads all.
std::vector<ConfigurationKey> SyncKeys() {
  const std::string section = "Sync";
  const auto text = [](const Json& value) { return IsText(value); };
  const Store endpoints = [](Configuration& configuration, const Json& value) {
    configuration.sync.configured = !value.empty();
    return value.is_array() && std::all_of(value.begin(), value.end(), IsText);
  };
  return {
      {section, "Endpoints", "[]", "a list of URLs", "The members of the store.", endpoints},
      {section, "CertificateAuthority", "\"\"", OptionalFile, "Who vouches for them, PEM.", Unread(text)},
      {section, "Certificate", "\"\"", OptionalFile, "This machine's certificate, PEM.", Unread(text)},
      {section, "Key", "\"\"", OptionalFile, "Its private key, PEM.", Unread(text)},
      {section, "User", "\"\"", "a name, or \"\"", "The store's user.", Unread(text)},
      {section, "PasswordFile", "\"\"", OptionalFile, "The file that holds its password.", Unread(text)},
      {section, "Prefix", "\"/perenna/\"", "a text", "What the keys of the directory begin with.", Unread(text)},
      {section, "OnStale", "\"serve\"", "\"serve\" or \"refuse\"",
       "What happens when the directory is older than StaleSeconds.",
       Choice<OnStale>(AT(sync.on_stale), {{"serve", OnStale::Serve}, {"refuse", OnStale::Refuse}})},
      {section, "StaleSeconds", "30", "a whole number from 1 to 86400", "The age that is still fresh.",
       WholeNumber<unsigned>(AT(sync.stale_seconds), 1, 86'400)},
  };
}

#undef AT

} // namespace

const std::vector<ConfigurationKey>& ConfigurationKeys() {
  static const std::vector<ConfigurationKey> keys = [] {
    std::vector<ConfigurationKey> all;
    for (auto* const part : {ModuleKeys, HostKeys, ProxyKeys, TlsAndDecisionKeys, LogAndLimitKeys, SyncKeys}) {
      for (ConfigurationKey& key : part()) {
        all.push_back(std::move(key));
      }
    }
    return all;
  }();
  return keys;
}

} // namespace Host
