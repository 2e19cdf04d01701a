#include "directory/transfer/DirectoryCheck.h"

#include <algorithm>
#include <ctime>
#include <unordered_map>
#include <unordered_set>

#include "LocalAccessManager.h"
#include "PN_HTTP.h"
#include "PN_x509Thumbprint.h"
#include "directory/credential/Credential.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

namespace Methods = LocalAccessManager::Strings; // of authentication

constexpr const char* LowerHexDigits = "0123456789abcdef";
constexpr const char* HexDigits = "0123456789abcdefABCDEF";
constexpr std::size_t SaltDigits = 32;
constexpr std::size_t DigestDigits = 64;
constexpr const char* DateFormat = "%Y-%m-%dT%H:%M:%S+00:00";

bool IsDate(const std::string& text) {
  std::tm date{};
  const char* const end = text.size() == Tarn::DateTimeLen ? strptime(text.c_str(), DateFormat, &date) : nullptr;
  return end == text.c_str() + text.size() && text.find(' ') == std::string::npos;
}

bool IsPasswordExpression(const std::string& text) {
  return text.size() == SaltDigits + 1 + DigestDigits && text.find_first_not_of(HexDigits) == SaltDigits &&
         text[SaltDigits] == ':' && text.find_first_not_of(LowerHexDigits, SaltDigits + 1) == std::string::npos;
}

bool IsCanonicalThumbprint(const std::string& text) {
  Perenna::X509Thumbprint thumbprint;
  std::array<char, 64> canonical{};
  return thumbprint.DecodeBase64(text.c_str()) && text == thumbprint.EncodeBase64(canonical.data(), canonical.size());
}

/// What is wrong with a pattern; empty when nothing is.
std::string PatternFault(const std::string& pattern) {
  std::string fault;
  CompilePattern(pattern, fault);
  if (!fault.empty()) {
    return Excerpt(pattern) + " is " + fault;
  }
  return pattern.find('\0') == std::string::npos ? "" : "holds a NUL: what follows it does not count";
}

/// Looks at one row after the other.
class Check {
public:
  Check(const Directory& directory, FileFindings& errors, FileFindings& warnings, FileFindings& notes,
        Progress& progress)
      : m_Directory(directory), m_Errors(errors), m_Warnings(warnings), m_Notes(notes), m_Progress(progress) {}

  void Run() {
    m_Progress.Begin("Checking", Sum(CountsOf(m_Directory)));
    Index(Users, m_Users);
    Index(Groups, m_Groups);
    ForEach(Users, [this] { CheckUser(); });
    ForEach(Groups, [this] { CheckGroup(); });
    ForEach(Memberships, [this] {
      CheckReference(MembershipColumn::Group, m_Groups, "group");
      CheckReference(MembershipColumn::User, m_Users, "user");
    });
    ForEach(Filters, [this] { CheckFilter(); });
    CheckRepeated(Memberships);
    CheckRepeated(Filters);
  }

private:
  using Ids = std::unordered_map<std::string_view, std::size_t>;

  const Rows& TheRows() const { return m_Directory.at(m_Section); }
  std::string_view View(std::size_t column) const { return TheRows().At(m_Row, column); }
  std::string Text(std::size_t column) const { return std::string(View(column)); }

  std::string Entry(std::size_t row) const {
    return std::string(Sections.at(m_Section).name) + '[' + std::to_string(row) + ']';
  }
  std::string Path(std::size_t column) const { return Entry(m_Row) + '.' + Sections.at(m_Section).columns[column]; }
  void Warn(std::size_t column, const std::string& message) { m_Warnings.Add(Path(column), message); }

  template <class Visit> void ForEach(SectionNumber section, Visit visit) {
    m_Section = section;
    for (m_Row = 0; m_Row < TheRows().Count(); ++m_Row) {
      m_Progress.Advance(1);
      if (TheRows().IsSound(m_Row)) {
        visit();
      }
    }
  }

  /// Takes the ids of a section's first column, which must differ.
  void Index(SectionNumber section, Ids& ids) {
    m_Section = section;
    for (m_Row = 0; m_Row < TheRows().Count(); ++m_Row) {
      const bool sound = TheRows().IsSound(m_Row);
      const auto [first, is_new] = ids.emplace(View(0), m_Row);
      if (!is_new && sound && TheRows().IsSound(first->second)) {
        m_Errors.Add(Path(0), Excerpt(View(0)) + " is the id of " + Entry(first->second) + " already");
      }
    }
  }

  void CheckUser();
  void CheckCredential();
  void CheckGroup();
  void CheckFilter();

  void CheckReference(std::size_t column, const Ids& ids, const std::string& noun) {
    if (ids.count(View(column)) == 0) {
      Warn(column, "there is no " + noun + ' ' + Excerpt(View(column)));
    }
  }

  /// Finds rows that are the same in all columns.
  void CheckRepeated(SectionNumber section) {
    m_Section = section;
    const Rows& rows = TheRows();
    const std::size_t columns = Sections.at(section).columns.size();
    const auto hash = [&rows](std::size_t row) { return std::hash<std::string_view>()(rows.Whole(row)); };
    const auto same = [&rows, columns](std::size_t left, std::size_t right) {
      return Compare(rows, left, rows, right, columns) == 0;
    };
    std::unordered_set<std::size_t, decltype(hash), decltype(same)> seen(rows.Count(), hash, same);
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      const auto [first, is_new] = rows.IsSound(row) ? seen.insert(row) : std::make_pair(seen.end(), true);
      if (!is_new) {
        m_Warnings.Add(Entry(row), "repeats " + Entry(*first));
      }
    }
  }

  const Directory& m_Directory;
  FileFindings& m_Errors;
  FileFindings& m_Warnings;
  FileFindings& m_Notes;
  Progress& m_Progress;
  Ids m_Users;
  Ids m_Groups;
  SectionNumber m_Section = Users;
  std::size_t m_Row = 0;
  std::string m_Pattern; // the last one that was compiled, and what came of it
  std::string m_PatternFault;
};

void Check::CheckUser() {
  const std::string_view id = View(UserColumn::Id);
  if (id.empty()) {
    Warn(UserColumn::Id, "is empty: no request can name this user");
  } else if (id.find('\0') != std::string_view::npos) {
    Warn(UserColumn::Id, Excerpt(id) + " holds a NUL: no request can name this user");
  }
  CheckCredential();
  const std::string date = Text(UserColumn::Date);
  if (!IsDate(date)) {
    Warn(UserColumn::Date, Excerpt(date) + " is not a date of the form YYYY-MM-DDThh:mm:ss+00:00");
  }
  if (const std::string_view creator = View(UserColumn::Creator); m_Users.count(creator) == 0) {
    m_Notes.Add(Path(UserColumn::Creator), "there is no user " + Excerpt(creator) + ", or none any more");
  }
}

/// The value itself is a secret, or nearly one: no message holds it.
void Check::CheckCredential() {
  const std::string_view method = EnabledMethod(View(UserColumn::Method));
  const std::string value = Text(UserColumn::Value);
  if (method == Methods::sha256) {
    if (!IsPasswordExpression(value)) {
      Warn(UserColumn::Value, "is not 32 hexadecimal digits, a colon and 64 lower-case hexadecimal digits: no password "
                              "fits it");
    }
  } else if (method == Methods::tls_client_certificate) {
    if (!IsCanonicalThumbprint(value)) {
      Warn(UserColumn::Value, "is not the canonical base64 text of a 20-byte thumbprint: no certificate fits it");
    }
  } else if (method == Methods::plain_pw) {
    if (value.empty()) {
      Warn(UserColumn::Value, "is empty: anybody can log in as this user without a password");
    }
  } else {
    Warn(UserColumn::Method, Excerpt(method) + " is none of sha256, tls_client_certificate, plain_pw: this user cannot "
                                               "log in");
  }
}

void Check::CheckGroup() {
  const std::string_view id = View(GroupColumn::Id);
  if (id.empty()) {
    Warn(GroupColumn::Id, "is empty");
  } else if (!IsGroupId(id)) {
    Warn(GroupColumn::Id, Excerpt(id) + " is not made of letters, digits, \"_\" and \"-\" alone");
  }
  if (View(GroupColumn::Name).empty()) {
    Warn(GroupColumn::Name, "is empty");
  }
}

void Check::CheckFilter() {
  Perenna::Method_t known = Perenna::METH_MAX;
  if (!Perenna::StringToMethod(Text(FilterColumn::Method), known)) {
    Warn(FilterColumn::Method, Excerpt(View(FilterColumn::Method)) + " is no HTTP method: the filter never applies");
  }
  CheckReference(FilterColumn::Group, m_Groups, "group");
  if (const std::string_view pattern = View(FilterColumn::Pattern); pattern != m_Pattern || pattern.empty()) {
    m_Pattern = pattern; // filters of several methods mostly stand together, with one pattern
    m_PatternFault = PatternFault(m_Pattern);
  }
  if (!m_PatternFault.empty()) {
    Warn(FilterColumn::Pattern, m_PatternFault);
  }
  const std::string_view action = View(FilterColumn::Action);
  if (action != "Allow" && action != "Deny") {
    Warn(FilterColumn::Action, Excerpt(action) + " is neither Allow nor Deny: the filter never applies");
  }
}

} // namespace

void CheckDirectory(const Directory& directory, FileFindings& errors, FileFindings& warnings, FileFindings& notes,
                    Progress& progress) {
  Check(directory, errors, warnings, notes, progress).Run();
}

} // namespace AccessDirectory
