#pragma once

#include <optional>

#include "host/decision/Judge.h"
#include "host/endpoint/ProxyAnswer.h"
#include "support/AccessDirectory.h"

namespace Testing {

/// A fixture: a directory, and a judge of it that proxies at a Unix-domain socket ask. The clock is turned by hand.
class JudgedDirectory : public AccessDirectory {
protected:
  JudgedDirectory() { Host::WatchSqliteErrors(); }

  void SetUp() override {
    AccessDirectory::SetUp();
    m_Log.emplace(Tarn::SetDefaultLogSink(nullptr));
    Tarn::SetDefaultLogSink(&*m_Log);
    m_Configuration.database_filename = File();
    m_Configuration.auth_realm = "a \"realm\"";
    m_Configuration.proxy.peers.emplace_back();
    m_Configuration.proxy.client_address = "X-Real-IP";
    m_Configuration.cached_decisions = 100;
    m_Configuration.throttle.failures = 3;
    m_Configuration.throttle.window_seconds = 60;
    m_Configuration.throttle.maximum_delay_seconds = 30;
  }
  void TearDown() override { Tarn::SetDefaultLogSink(nullptr); }

  Host::Configuration& Settings() { return m_Configuration; }
  Host::DecisionContext& Context() {
    if (!m_Context) {
      m_Context.emplace(m_Configuration, 1, [this] { ++m_TimesGone; });
      m_Context->clock = [this] { return m_Now; };
      m_Origins.emplace(m_Configuration);
    }
    return *m_Context;
  }
  Host::Judge& TheJudge() {
    if (!m_Judge) {
      m_Judge.emplace(Context());
    }
    return *m_Judge;
  }

  /// Asks about "METHOD target" for "user:password" (empty: no credentials) from an address, as a group of its own.
  const Host::Verdict& Ask(const std::string& request, const std::string& login, const std::string& address = "") {
    std::vector<Host::Field> fields;
    if (!login.empty()) {
      std::string text(Tarn::base64_buffer_size(login.size()), '\0');
      Tarn::base64encode(reinterpret_cast<const Tarn::byte_t*>(login.data()), static_cast<unsigned>(login.size()),
                         text.data(), static_cast<unsigned>(text.size()));
      text.pop_back(); // the terminator
      fields.push_back({"Authorization", "Basic " + text});
    }
    if (!address.empty()) {
      fields.push_back({"X-Real-IP", address});
    }
    return AskWith(request, std::move(fields));
  }
  const Host::Verdict& AskWith(const std::string& request, std::vector<Host::Field> fields, Host::Peer peer = Local()) {
    const std::size_t space = request.find(' ');
    Host::Request asking;
    asking.fields = std::move(fields);
    asking.fields.push_back({"X-Original-Method", request.substr(0, space)});
    asking.fields.push_back({"X-Original-URI", request.substr(space + 1)});
    asking.peer = std::move(peer);
    Host::Judge& judge = TheJudge();
    if (!m_IsInGroup) {
      judge.BeginGroup();
    }
    m_Verdict = Host::JudgeForProxy(*m_Origins, Host::TargetForm(m_Configuration.target_allows), Context(), judge,
                                    asking, m_Origins->ReadForwarded(asking));
    return m_Verdict;
  }
  /// The outcome of `Ask`.
  std::string Outcome(const std::string& request, const std::string& login, const std::string& address = "") {
    return Host::OutcomeName(Ask(request, login, address).What());
  }
  /// The answer to the request asked about last: its status and its fields but for the request's id.
  std::string Answer() const {
    const Host::Response response = Host::AnswerProxy(m_Verdict, m_Configuration.auth_realm);
    std::string text = std::to_string(response.status);
    for (const Host::Field& field : response.fields) {
      text += field.name == "X-Request-Id" ? "" : "|" + field.name + ": " + field.value;
    }
    return text;
  }

  static Host::Peer Local() {
    Host::Peer peer;
    peer.unix_domain = true;
    return peer;
  }

  std::int64_t m_Now = 1000; // milliseconds
  bool m_IsInGroup = false;
  int m_TimesGone = 0;

private:
  std::optional<Host::WatchedLog> m_Log;
  Host::Configuration m_Configuration;
  std::optional<Host::DecisionContext> m_Context;
  std::optional<Host::OriginReader> m_Origins;
  std::optional<Host::Judge> m_Judge;
  Host::Verdict m_Verdict;
};

} // namespace Testing
