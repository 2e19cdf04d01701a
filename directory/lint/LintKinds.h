#pragma once

namespace AccessDirectory {

/// A problem keeps a row from doing what it says, or does harm; a note is worth a look.
enum class Severity { Problem, Note };

/// What can be found. The names are part of the interface.
struct LintKind {
  const char* name;
  Severity severity;
};

namespace LintKinds {

// The file itself.
inline constexpr LintKind FileMode = {"file-mode", Severity::Problem};

// Any table.
inline constexpr LintKind ValueBlob = {"value-blob", Severity::Problem};
inline constexpr LintKind ValueNul = {"value-nul", Severity::Problem};

// Users.
inline constexpr LintKind UserId = {"user-id", Severity::Problem};
inline constexpr LintKind CredentialMethod = {"credential-method", Severity::Problem};
inline constexpr LintKind CredentialMalformed = {"credential-malformed", Severity::Problem};
inline constexpr LintKind CredentialPlain = {"credential-plain", Severity::Problem};
inline constexpr LintKind ThumbprintForm = {"thumbprint-form", Severity::Problem};
inline constexpr LintKind ThumbprintShared = {"thumbprint-shared", Severity::Problem};
inline constexpr LintKind UserWithoutAllow = {"user-without-allow", Severity::Problem};
inline constexpr LintKind UserDisabled = {"user-disabled", Severity::Note};
inline constexpr LintKind UserWithoutGroup = {"user-without-group", Severity::Note};

// Groups.
inline constexpr LintKind GroupId = {"group-id", Severity::Problem};
inline constexpr LintKind GroupWithoutMembers = {"group-without-members", Severity::Note};
inline constexpr LintKind GroupWithoutFilters = {"group-without-filters", Severity::Note};

// Memberships.
inline constexpr LintKind MembershipUser = {"membership-user", Severity::Problem};
inline constexpr LintKind MembershipGroup = {"membership-group", Severity::Problem};
inline constexpr LintKind MembershipRepeated = {"membership-repeated", Severity::Problem};

// Filters.
inline constexpr LintKind FilterMethod = {"filter-method", Severity::Problem};
inline constexpr LintKind FilterGroup = {"filter-group", Severity::Problem};
inline constexpr LintKind FilterPattern = {"filter-pattern", Severity::Problem};
inline constexpr LintKind FilterCostly = {"filter-costly", Severity::Problem};
inline constexpr LintKind FilterAction = {"filter-action", Severity::Problem};
inline constexpr LintKind FilterRepeated = {"filter-repeated", Severity::Problem};
inline constexpr LintKind FilterOverruled = {"filter-overruled", Severity::Problem};
inline constexpr LintKind FilterIdle = {"filter-idle", Severity::Note};
inline constexpr LintKind FilterContained = {"filter-contained", Severity::Note};
inline constexpr LintKind FilterQuery = {"filter-query", Severity::Problem};

// Patterns that may not say what was meant.
inline constexpr LintKind FilterConstruct = {"filter-construct", Severity::Problem};
inline constexpr LintKind FilterEscape = {"filter-escape", Severity::Problem};
inline constexpr LintKind FilterQuantifier = {"filter-quantifier", Severity::Problem};
inline constexpr LintKind FilterAssertion = {"filter-assertion", Severity::Problem};
inline constexpr LintKind FilterDialect = {"filter-dialect", Severity::Note};
inline constexpr LintKind FilterTarget = {"filter-target", Severity::Problem};
inline constexpr LintKind FilterEverything = {"filter-everything", Severity::Note};
inline constexpr LintKind FilterHalfAnchored = {"filter-half-anchored", Severity::Problem};
inline constexpr LintKind FilterUnanchored = {"filter-unanchored", Severity::Note};
inline constexpr LintKind FilterDot = {"filter-dot", Severity::Note};
inline constexpr LintKind FilterEnd = {"filter-end", Severity::Note};

} // namespace LintKinds

} // namespace AccessDirectory
