#pragma once

#include "directory/lint/Lint.h"

namespace AccessDirectory::LintKinds {

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
inline constexpr LintKind FilterAction = {"filter-action", Severity::Problem};
inline constexpr LintKind FilterRepeated = {"filter-repeated", Severity::Problem};
inline constexpr LintKind FilterOverruled = {"filter-overruled", Severity::Problem};
inline constexpr LintKind FilterIdle = {"filter-idle", Severity::Note};
inline constexpr LintKind FilterUnanchored = {"filter-unanchored", Severity::Note};

} // namespace AccessDirectory::LintKinds
