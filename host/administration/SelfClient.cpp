#include "host/administration/SelfClient.h"

#include <algorithm>

#include <curl/curl.h>

#include "LocalAccessManager.h"
#include "host/administration/Problem.h"

namespace Host {

using AccessDirectory::Json;

namespace {

constexpr long ConnectSeconds = 5;
constexpr long AnswerSeconds = 300; // an import takes its time
constexpr std::string_view UnixBeginning = "unix:";
constexpr std::string_view TlsBeginning = "https:";

struct EndHandle {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct EndList {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using Headers = std::unique_ptr<curl_slist, EndList>;

bool Begins(const std::string& text, std::string_view with) {
  return text.compare(0, with.size(), with) == 0;
}

/// The address that a call takes: the cheapest that nobody else can answer at.
std::string Chosen(const std::vector<std::string>& listening) {
  const auto rank = [](const std::string& address) {
    return Begins(address, UnixBeginning) ? 0 : Begins(address, TlsBeginning) ? 2 : 1;
  };
  const auto first = std::min_element(listening.begin(), listening.end(),
                                      [&](const auto& left, const auto& right) { return rank(left) < rank(right); });
  return first == listening.end() ? std::string() : *first;
}

/// An address that means every one of the machine is reached at loopback.
std::string Reachable(const std::string& address) {
  if (Begins(address, "0.0.0.0:")) {
    return "127.0.0.1" + address.substr(address.find(':'));
  }
  return Begins(address, "[::]:") ? "[::1]" + address.substr(address.find("]:") + 1) : address;
}

std::size_t Collect(char* bytes, std::size_t size, std::size_t count, void* text) {
  static_cast<std::string*>(text)->append(bytes, size * count);
  return size * count;
}

} // namespace

class SelfClient::Implementation {
public:
  Implementation(const std::vector<std::string>& listening, const Configuration& configuration)
      : m_Handle(curl_easy_init()) {
    const std::string address = Chosen(listening);
    if (m_Handle == nullptr || address.empty()) {
      Refuse(503, "the host cannot call itself");
    }
    m_Origin = "http://" + Reachable(address);
    if (Begins(address, UnixBeginning)) {
      m_Origin = "http://localhost";
      Set(CURLOPT_UNIX_SOCKET_PATH, address.substr(UnixBeginning.size()).c_str());
    } else if (Begins(address, TlsBeginning)) {
      m_Origin = "https://" + Reachable(address.substr(TlsBeginning.size()));
      Set(CURLOPT_CAINFO, configuration.tls.certificate.c_str()); // this one, whatever name it has
      Set(CURLOPT_SSL_VERIFYHOST, 0L);
    }
    Set(CURLOPT_PROXY, ""); // whatever the environment says
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_CONNECTTIMEOUT, ConnectSeconds);
    Set(CURLOPT_TIMEOUT, AnswerSeconds);
    Set(CURLOPT_PATH_AS_IS, 1L);
    Set(CURLOPT_WRITEFUNCTION, Collect);
  }

  Answer Call(const std::string& method, const std::string& path, const Json& body, const std::string& key) {
    const std::string url = m_Origin + path;
    const std::string sent = body.is_null() ? std::string() : body.dump();
    std::string received;
    Headers headers;
    Add(headers, LocalAccessManager::Strings::SelfCallbackId + ": " + key);
    Add(headers, "Content-Type: application/json");
    Add(headers, "Expect:");
    Set(CURLOPT_URL, url.c_str());
    Set(CURLOPT_HTTPHEADER, headers.get());
    Set(CURLOPT_WRITEDATA, &received);
    Set(CURLOPT_NOBODY, method == "HEAD" ? 1L : 0L);
    Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(sent.size()));
    Set(CURLOPT_POSTFIELDS, body.is_null() ? nullptr : sent.c_str());
    Set(CURLOPT_HTTPGET, body.is_null() && method != "HEAD" ? 1L : 0L);
    Set(CURLOPT_CUSTOMREQUEST, method.c_str());
    if (const CURLcode code = curl_easy_perform(m_Handle.get()); code != CURLE_OK) {
      Refuse(503, std::string("the host cannot call itself: ") + curl_easy_strerror(code));
    }
    long status = 0;
    curl_easy_getinfo(m_Handle.get(), CURLINFO_RESPONSE_CODE, &status);
    Answer answer;
    answer.status = static_cast<unsigned>(status);
    answer.body = received.empty() ? Json() : Json::parse(received, nullptr, false);
    if (answer.body.is_discarded()) {
      answer.body = AccessDirectory::JsonText(received);
    }
    return answer;
  }

private:
  template <typename Value> void Set(CURLoption option, Value value) {
    if (curl_easy_setopt(m_Handle.get(), option, value) != CURLE_OK) {
      Refuse(503, "the host cannot call itself");
    }
  }
  static void Add(Headers& headers, const std::string& line) {
    curl_slist* const longer = curl_slist_append(headers.get(), line.c_str());
    if (longer == nullptr) {
      throw std::bad_alloc();
    }
    static_cast<void>(headers.release());
    headers.reset(longer);
  }

  std::unique_ptr<CURL, EndHandle> m_Handle;
  std::string m_Origin;
};

SelfClient::SelfClient(const std::vector<std::string>& listening, const Configuration& configuration)
    : m_Implementation(std::make_unique<Implementation>(listening, configuration)) {}

SelfClient::~SelfClient() = default;

SelfClient::Answer SelfClient::Call(const std::string& method, const std::string& path, const Json& body,
                                    const std::string& key) {
  return m_Implementation->Call(method, path, body, key);
}

} // namespace Host
