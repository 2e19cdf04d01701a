#pragma once

#include <list>
#include <string>
#include <unordered_map>
#include <utility>

#include "PN_HTTP.h"
#include "PN_PList.h"
#include "PN_PagedResults.h"
#include "PN_error.h"
#include "PN_x509.h"
#include "TN_mutex.h"
#include "TN_util.h"

struct sqlite3;

/// A new stored form of `password` for method "sha256": a fresh salt of 32 hexadecimal digits, ":", and the SHA-256
/// digest of a constant of this module, the salt text and the password's bytes, in 64 hexadecimal digits. Every call
/// draws a new salt. Thread-safe.
TN_API std::string calculate_sha_password_expression(const std::string& password);

/// The local access-control module: a directory of users, groups, memberships and filters in one SQLite file, and the
/// questions a server asks it about each request.
namespace LocalAccessManager {

/// The names the module shares with its host: configuration keys, request and row keys, credential methods.
namespace Strings {
TN_API extern const std::string LocalAccessManager;     ///< the module's section of the host's configuration
TN_API extern const std::string DatabaseFilename;       ///< its key for the path of the database file
TN_API extern const std::string AuthRealm;              ///< for hosts; the module does not read it
TN_API extern const std::string PathFilterBypass;       ///< for hosts; the module does not read it
TN_API extern const std::string AnonymousUserId;        ///< for hosts; the module does not read it
TN_API extern const std::string SelfCallbackId;         ///< the HTTP header that carries a self access key
TN_API extern const std::string user_id;                ///< request and row key
TN_API extern const std::string create_user;            ///< request and row key: the id of the creating user
TN_API extern const std::string create_date;            ///< row key: Tarn::Timestamp text
TN_API extern const std::string password;               ///< request key
TN_API extern const std::string certificate;            ///< request key: a thumbprint in base64
TN_API extern const std::string auth_method;            ///< row key: one of the three methods below
TN_API extern const std::string auth_value;             ///< row key: the stored credential
TN_API extern const std::string plain_pw;               ///< method: the password itself is stored
TN_API extern const std::string sha256;                 ///< method: a salted digest is stored
TN_API extern const std::string tls_client_certificate; ///< method: a certificate's thumbprint is stored
TN_API extern const std::string group_id;               ///< request and row key
TN_API extern const std::string group_name;             ///< request and row key
TN_API extern const std::string method;                 ///< request and row key: an HTTP method's token
TN_API extern const std::string filter;                 ///< request and row key: a POSIX extended regular expression
TN_API extern const std::string action;                 ///< request and row key: "Allow" or "Deny"
TN_API extern const std::string users;                  ///< key of a listed group's members
TN_API extern const std::string groups;                 ///< key of a listed user's groups
TN_API extern const std::string filters;                ///< for hosts
TN_API extern const std::string path;                   ///< for hosts
TN_API extern const std::string request_url;            ///< for hosts
} // namespace Strings

/// The bytes of a base64 text (up to its first NUL; see Tarn::base64decode for what it accepts). Empty for an empty
/// text and for every failure. Thread-safe.
TN_API std::string DecodeBase64(const std::string& in);

/// Cuts `pair_str` at its first colon: what stands before it goes to `first`, all after it to `second`. False, with
/// both untouched, when there is no colon. Thread-safe.
TN_API bool SplitColonPair(const std::string& pair_str, std::string& first, std::string& second);

/// The access directory. A host uses the one that `InitUserManager` creates and `GetUserManager` hands out.
///
/// Thread-safety: after `InitUserManager` has returned, any thread may call any operation. `m_Lock` guards the
/// connection and is not recursive: each operation takes it around its statements, the listings for their whole run;
/// the credential checks release it before they compute a digest. While another process keeps the file locked, an
/// operation waits up to 0.9 s for each prepare and step, with the lock held. Statements commit one by one; a test for
/// existence and the write after it are not atomic.
///
/// Results common to all operations: Perenna::RESULT_DB_FAILURE when the database is not open, or when a statement
/// could not be prepared or stepped or the file stayed busy. Questions answered by bool fold every failure into false;
/// rows read before a step failed still decide, unless it was memory that ran out.
/// Expected failures never throw; a failed allocation does.
///
/// Ids, methods and actions are compared byte for byte. An id ends at its first NUL, except in the checks of
/// credentials and requests, which refuse an id or a URL that holds one.
class TN_API UserManager {
public:
  UserManager() = default;
  /// Closes the database.
  ~UserManager();
  UserManager(const UserManager&) = delete;
  UserManager& operator=(const UserManager&) = delete;

  /// Opens the database file named by "DatabaseFilename" in `config`, the module's own section, and creates it with
  /// its schema when no regular file stands there. An existing file is opened as it is. Not thread-safe: runs once,
  /// before any other operation.
  /// Tarn::RESULT_OK, also when already open, whatever the file holds; Perenna::RESULT_PN_SETUP when the name is
  /// missing or holds a NUL, or the file cannot be opened or written; Tarn::RESULT_ALLOC. After a failure the manager
  /// stays closed.
  Tarn::Result_t InitUserManager(const Perenna::PListDict& config);

  /// Whether there is a user of this id.
  bool UserExists(const std::string& user_id);

  /// Creates a user from the texts under "user_id", "create_user" (an existing user, recorded as creator) and either
  /// "password" (stored as salted SHA-256) or, when that is empty, "certificate" (base64 of a 20-byte thumbprint,
  /// stored as given; only canonical base64 is ever found again).
  /// Tarn::RESULT_FALSE when created; Tarn::RESULT_PARAM: empty user id, no credential, malformed thumbprint;
  /// Tarn::RESULT_FILEEXISTS; Tarn::RESULT_STATE: no such creator; Perenna::RESULT_DB_FAILURE, also when another thread
  /// created the id meanwhile.
  Tarn::Result_t CreateUser(const Perenna::PListDict& dict);

  /// Tarn::RESULT_NOTIMPL: stored credentials are not changed through the module.
  Tarn::Result_t SetUserCredentials(const Perenna::PListDict& dict);

  /// Removes a user and its memberships. Tarn::RESULT_OK, whatever the two deletions did, or Tarn::RESULT_NOT_FOUND.
  Tarn::Result_t DeleteUser(const std::string& user_id);

  /// Writes a page of the users into `response_document` (see Perenna::Sqlite3::GetPagedResults). Each entry holds the
  /// row's columns, stored credential included, and "groups", the ids of its groups in ascending order.
  /// Always Tarn::RESULT_OK; after a database failure `response_document` holds no listing.
  Tarn::Result_t GetUsers(Perenna::PagedResults::ResultState& page_params, Perenna::PListDict& response_document);

  /// Whether there is a group of this id.
  bool GroupExists(const std::string& group_id);

  /// Creates a group from the texts under "group_id" (ASCII letters, digits, "_" and "-") and "group_name", which are
  /// bound by their kinds.
  /// Tarn::RESULT_FALSE when created; Tarn::RESULT_PARAM; Tarn::RESULT_FILEEXISTS; Perenna::RESULT_DB_FAILURE, also
  /// when another thread created the id meanwhile.
  Tarn::Result_t CreateGroup(const Perenna::PListDict& dict);

  /// Replaces the members of a group by the existing users that `user_list` names, each once. Commits row by row.
  /// Tarn::RESULT_NOT_FOUND: no such group; Tarn::RESULT_PARAM, nothing changed: an item is not a text or names no
  /// user; Tarn::RESULT_OK for an empty list; else the result of the last insert, Tarn::RESULT_FALSE when it succeeded.
  Tarn::Result_t SetGroupUsers(const std::string& group_id, const Perenna::PListArray& user_list);

  /// The mirror image: replaces the groups of a user. Results as `SetGroupUsers`.
  Tarn::Result_t SetUserGroups(const std::string& user_id, const Perenna::PListArray& group_list);

  /// Removes a group and its memberships; its filters stay. Results as `DeleteUser`.
  Tarn::Result_t DeleteGroup(const std::string& group_id);

  /// As `GetUsers`, for groups; each entry holds "users", the ids of its members in ascending order.
  Tarn::Result_t GetGroups(Perenna::PagedResults::ResultState& page_params, Perenna::PListDict& response_document);

  /// Writes a page of the filters into `response_document`.
  /// Tarn::RESULT_OK; Tarn::RESULT_FALSE when there is no filter; Perenna::RESULT_DB_FAILURE with nothing written.
  Tarn::Result_t GetFilters(Perenna::PagedResults::ResultState& page_params, Perenna::PListDict& response_document);

  /// Stores a filter from "method", "group_id", "filter" and "action", exactly as given and unchecked, bound by kind.
  /// Tarn::RESULT_FALSE when stored; Tarn::RESULT_PARAM: a key is missing or not a scalar.
  Tarn::Result_t CreateFilter(const Perenna::PListDict& dict);

  /// Removes every filter that equals the four values. Tarn::RESULT_FALSE, also when there was none; else as above.
  Tarn::Result_t DeleteFilter(const Perenna::PListDict& dict);

  /// Whether `password` is the password of the user. Users that authenticate by certificate have none.
  bool TestUserIdAndPassword(const Perenna::HTTPRequest& request, const std::string& user_id,
                             const std::string& password);

  /// Whether a user is registered for the certificate's thumbprint; its id goes to `user_id`, untouched otherwise.
  bool TestUserCertificate(const Perenna::HTTPRequest& request, const Perenna::X509Certificate& user_cert,
                           std::string& user_id);

  /// Whether the user may perform the request. Of the filters of the user's groups that name the method and match the
  /// URL, one "Deny" refuses, otherwise one "Allow" grants; nothing is allowed by default. False as well when a
  /// filter's pattern is too big to be judged, or memory ran out.
  bool TestRequestForUser(const Perenna::HTTPRequest& request, const std::string& user_id);

  /// Appends to `method_set`, in ascending order, the methods that the user may perform on the request's URL, whatever
  /// the request's own method. False, with nothing appended, when no filter of the user's groups matches the URL, and
  /// when `TestRequestForUser` would be false for want of a judgement.
  bool GetOptionsMethods(const Perenna::HTTPRequest& request, const std::string& user_id,
                         Perenna::PListArray& method_set);

private:
  Tarn::Mutex m_Lock;
  sqlite3* m_db = nullptr;
};

/// Creates the process's UserManager and initialises it from section "LocalAccessManager" of the host's whole
/// configuration. The call that creates it returns the initialiser's result; every later call returns
/// Tarn::RESULT_OK and changes nothing, also after a failure. Thread-safe; of two concurrent calls the later one may
/// return before the file is open.
TN_API Tarn::Result_t InitUserManager(const Perenna::PListDict& dict);

/// Hands out the UserManager, the module's for the rest of the process; false, with `p` untouched, before it exists.
/// `InitUserManager` must have returned before another thread calls this.
TN_API bool GetUserManager(UserManager*& p);

/// The self access keys: random, single-use, valid for 10 seconds, with which the server authenticates its calls to
/// itself. `m_Lock` guards the list with its index and is never held together with another lock; any thread may call
/// any operation.
class TN_API SelfAccessManager {
public:
  SelfAccessManager() = default;
  ~SelfAccessManager() = default;

  /// Reads nothing of `config`, the module's own section. Tarn::RESULT_OK.
  Tarn::Result_t InitSelfAccessManager(const Perenna::PListDict& config);

  /// Discards every key. Tarn::RESULT_OK.
  Tarn::Result_t Flush();

  /// Issues a new key, written into `id`.
  void CreateSelfAccessKey(Tarn::UUID& id);

  /// True when `id` was issued here at most 10 whole seconds ago and not resolved before; it cannot be used again.
  /// Every call also drops the keys that have expired.
  bool ResolveSelfAccessKey(const Tarn::UUID& id);

private:
  SelfAccessManager(const SelfAccessManager&) = delete;
  SelfAccessManager& operator=(const SelfAccessManager&) = delete;

  using AccessKeyList = std::list<std::pair<Tarn::UUID, Tarn::Timestamp>>;

  Tarn::Mutex m_Lock;
  AccessKeyList m_SelfAccessKeys; // in the order of issue
  // By the first bytes of their keys, all entries but some last ones. The bytes are random; that they are all different
  // is nowhere relied on.
  std::unordered_multimap<std::uint64_t, AccessKeyList::iterator> m_Index;
  bool m_InOrder = true; // of time: the clock was not set back between the entries
};

/// Creates the process's SelfAccessManager as `InitUserManager` does its manager. Tarn::RESULT_OK. Thread-safe.
TN_API Tarn::Result_t InitSelfAccessManager(const Perenna::PListDict& dict);

/// Hands out the SelfAccessManager; false, with `p` untouched, before it exists.
TN_API bool GetSelfAccessManager(SelfAccessManager*& p);

/// Stamps outgoing calls with a fresh self access key. Stateless: one object serves all threads.
class TN_API SelfAuthRestCallback : public Perenna::IPreFlightInsertCallback {
public:
  SelfAuthRestCallback();
  ~SelfAuthRestCallback() override;

  /// Adds the header "x-pn-SelfCallbackId" with a new key in UUID text form, unless the call carries one already.
  /// Always Tarn::RESULT_OK: without a key store the call goes out unstamped, and an Error line says so.
  Tarn::Result_t Call(Perenna::BasicRestEntryCall& call_params) override;
};

} // namespace LocalAccessManager
