#include "sync/store/Transport.h"

#include <array>
#include <mutex>
#include <new>

#include <curl/curl.h>

#include "directory/Failure.h"

namespace Sync {

namespace {

constexpr long ConnectMilliseconds = 1500;
constexpr long SilentSeconds = 3;
constexpr std::size_t MostBytes = std::size_t{256}
                                  << 20U; // of one answer or line: the store's own limits are far below

struct EndEasy {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct EndMulti {
  void operator()(CURLM* handle) const noexcept { curl_multi_cleanup(handle); }
};
struct EndList {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};

template <typename Value> void Set(CURL* handle, CURLoption option, Value value) {
  if (curl_easy_setopt(handle, option, value) != CURLE_OK) {
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System, "the HTTP library lacks an option");
  }
}

/// One request at a time of one connection.
class Easy {
public:
  explicit Easy(const Settings& settings) : m_Handle(curl_easy_init()) {
    if (m_Handle == nullptr) {
      throw std::bad_alloc();
    }
    Set(Get(), CURLOPT_PROXY, ""); // whatever the environment says
    Set(Get(), CURLOPT_NOSIGNAL, 1L);
    Set(Get(), CURLOPT_TCP_NODELAY, 1L);
    Set(Get(), CURLOPT_CONNECTTIMEOUT_MS, ConnectMilliseconds);
    Set(Get(), CURLOPT_PROTOCOLS_STR, "http,https");
    Set(Get(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    Set(Get(), CURLOPT_ERRORBUFFER, m_Error.data());
    if (!settings.certificate_authority.empty()) {
      Set(Get(), CURLOPT_CAINFO, settings.certificate_authority.c_str());
      Set(Get(), CURLOPT_CAPATH, nullptr);
    }
    if (!settings.certificate.empty()) {
      Set(Get(), CURLOPT_SSLCERT, settings.certificate.c_str());
      Set(Get(), CURLOPT_SSLKEY, settings.key.c_str());
    }
  }

  CURL* Get() const noexcept { return m_Handle.get(); }

  /// `body` outlives the request.
  void Prepare(const std::string& url, const std::string& body, const std::string& token) {
    m_Error.front() = '\0';
    m_Headers.reset();
    Add("Content-Type: application/json");
    Add("Expect:");
    if (!token.empty()) {
      Add("Authorization: " + token);
    }
    Set(Get(), CURLOPT_URL, url.c_str());
    Set(Get(), CURLOPT_HTTPHEADER, m_Headers.get());
    Set(Get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    Set(Get(), CURLOPT_POSTFIELDS, body.c_str());
  }

  std::string Reason(CURLcode code) const {
    return m_Error.front() != '\0' ? m_Error.data() : curl_easy_strerror(code);
  }

private:
  void Add(const std::string& line) {
    curl_slist* const longer = curl_slist_append(m_Headers.get(), line.c_str());
    if (longer == nullptr) {
      throw std::bad_alloc();
    }
    static_cast<void>(m_Headers.release());
    m_Headers.reset(longer);
  }

  std::unique_ptr<curl_slist, EndList> m_Headers; // outlives the handle that refers to it
  std::array<char, CURL_ERROR_SIZE> m_Error{};
  std::unique_ptr<CURL, EndEasy> m_Handle;
};

std::size_t Collect(char* bytes, std::size_t size, std::size_t count, void* text) noexcept {
  try {
    auto& collected = *static_cast<std::string*>(text);
    if (collected.size() + size * count > MostBytes) {
      return 0; // ends the transfer with an error
    }
    collected.append(bytes, size * count);
    return size * count;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

/// Before the first handle, which would do it in a way that is not thread-safe.
void InitialiseLibrary() {
  static std::once_flag s_done;
  std::call_once(s_done, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

} // namespace

class Transport::Handle : public Easy {
public:
  using Easy::Easy;
};

Transport::Transport(const Settings& settings) {
  InitialiseLibrary();
  m_Handle = std::make_unique<Handle>(settings);
  Set(m_Handle->Get(), CURLOPT_WRITEFUNCTION, Collect);
  Set(m_Handle->Get(), CURLOPT_LOW_SPEED_LIMIT, 1L);
  Set(m_Handle->Get(), CURLOPT_LOW_SPEED_TIME, SilentSeconds);
}

Transport::~Transport() = default;

HttpAnswer Transport::Post(const std::string& url, const std::string& body, const std::string& token,
                           std::chrono::milliseconds patience) {
  HttpAnswer answer;
  m_Handle->Prepare(url, body, token);
  Set(m_Handle->Get(), CURLOPT_WRITEDATA, &answer.body);
  Set(m_Handle->Get(), CURLOPT_TIMEOUT_MS, static_cast<long>(patience.count()));
  const CURLcode code = curl_easy_perform(m_Handle->Get());
  if (code != CURLE_OK) {
    answer.body = m_Handle->Reason(code);
    return answer;
  }
  answer.arrived = true;
  curl_easy_getinfo(m_Handle->Get(), CURLINFO_RESPONSE_CODE, &answer.status);
  return answer;
}

class Stream::Handle {
public:
  Handle(const Settings& settings, const std::string& url, std::string body, const std::string& token)
      : m_Body(std::move(body)), m_Multi(curl_multi_init()), m_Easy(settings) {
    if (m_Multi == nullptr) {
      throw std::bad_alloc();
    }
    Set(m_Easy.Get(), CURLOPT_WRITEFUNCTION, Collect);
    Set(m_Easy.Get(), CURLOPT_WRITEDATA, &m_Received);
    Set(m_Easy.Get(), CURLOPT_TCP_KEEPALIVE, 1L);
    m_Easy.Prepare(url, m_Body, token);
    if (curl_multi_add_handle(m_Multi.get(), m_Easy.Get()) != CURLM_OK) {
      throw std::bad_alloc();
    }
  }
  ~Handle() { curl_multi_remove_handle(m_Multi.get(), m_Easy.Get()); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  bool HasLine() const noexcept { return m_Received.find('\n', std::max(m_Searched, m_Begin)) != std::string::npos; }

  std::optional<std::string> Take() {
    const std::size_t end = m_Received.find('\n', std::max(m_Searched, m_Begin));
    if (end == std::string::npos) {
      m_Searched = m_Received.size();
      return std::nullopt;
    }
    std::string line = m_Received.substr(m_Begin, end - m_Begin);
    m_Begin = end + 1;
    if (m_Begin == m_Received.size()) {
      m_Received.clear();
      m_Begin = 0;
    } else if (m_Begin > KeptBytes) {
      m_Received.erase(0, m_Begin);
      m_Begin = 0;
    }
    m_Searched = m_Begin;
    return line;
  }

  void Work() {
    int running = 0;
    if (curl_multi_perform(m_Multi.get(), &running) != CURLM_OK) {
      m_Ended = "the HTTP library failed";
      return;
    }
    if (running == 0 && m_Ended.empty()) {
      int left = 0;
      const CURLMsg* const message = curl_multi_info_read(m_Multi.get(), &left);
      m_Ended = message == nullptr || message->data.result == CURLE_OK ? "the member ended the stream"
                                                                       : m_Easy.Reason(message->data.result);
    }
  }

  void Wait(std::chrono::milliseconds patience, int descriptor) {
    curl_waitfd other = {descriptor, CURL_WAIT_POLLIN, 0};
    curl_multi_poll(m_Multi.get(), &other, descriptor < 0 ? 0 : 1, static_cast<int>(patience.count()), nullptr);
    m_Interrupted = descriptor >= 0 && other.revents != 0;
  }
  bool Interrupted() const noexcept { return m_Interrupted; }
  const std::string& Ended() const noexcept { return m_Ended; }

private:
  static constexpr std::size_t KeptBytes = 65536; // of lines that were taken, before they are moved away

  std::string m_Body;
  std::string m_Received;
  std::size_t m_Begin = 0;    // of the next line
  std::size_t m_Searched = 0; // there is no end of a line before this
  std::string m_Ended;
  bool m_Interrupted = false;
  std::unique_ptr<CURLM, EndMulti> m_Multi;
  Easy m_Easy;
};

Stream::Stream(const Settings& settings, const std::string& url, std::string body, const std::string& token) {
  InitialiseLibrary();
  m_Handle = std::make_unique<Handle>(settings, url, std::move(body), token);
}

Stream::~Stream() = default;

std::optional<std::string> Stream::Line(std::chrono::milliseconds patience, int descriptor) {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (;;) {
    if (auto line = m_Handle->Take()) {
      return line;
    }
    m_Handle->Work();
    if (auto line = m_Handle->Take()) {
      return line;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (!Ended().empty() || left.count() <= 0) {
      return std::nullopt;
    }
    m_Handle->Wait(left, descriptor);
    if (m_Handle->Interrupted()) {
      return std::nullopt;
    }
  }
}

bool Stream::HasLine() const noexcept {
  return m_Handle->HasLine();
}

const std::string& Stream::Ended() const noexcept {
  return m_Handle->Ended();
}

} // namespace Sync
