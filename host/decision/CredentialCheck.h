#pragma once

#include <string>

#include "LocalAccessManager.h"
#include "host/Configuration.h"
#include "host/caller/Credentials.h"
#include "host/decision/Explainer.h"
#include "host/decision/Verdict.h"
#include "host/decision/watch/CallWatch.h"

namespace Host {

/// Asks the module whether credentials are someone's. One thread's own, as the manager and the explainer are, which
/// have to outlive it.
class CredentialCheck {
public:
  CredentialCheck(LocalAccessManager::UserManager& manager, Explainer& explainer, CertificateForm form)
      : m_Manager(manager), m_Explainer(explainer), m_Form(form) {}

  /// Whether they are; fills the judgement's user, or outcome and reason where they are not. What `watch` says of a
  /// failure comes first. Every refusal of a password costs the same, so that its time does not tell which ids exist.
  bool Prove(const Credentials& credentials, const Perenna::HTTPRequest& request, CallWatch& watch,
             Judgement& judgement);

  /// Asks the module's two questions for somebody who does not exist: whether they can be asked.
  void AskForNobody();

private:
  bool ProveCertificate(const Credentials& credentials, const Perenna::HTTPRequest& request, Judgement& judgement);
  void EvenOut(const Perenna::HTTPRequest& request, const std::string& password, CallWatch& watch);

  LocalAccessManager::UserManager& m_Manager;
  Explainer& m_Explainer;
  CertificateForm m_Form;
};

} // namespace Host
