#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "PN_PList.h"

namespace Perenna::PagedResults {

/// The limit of an unbounded page.
constexpr std::int32_t RS_MAXROWS = 0x7FFFFFFF;
/// Rows on a page when the client does not say.
constexpr std::int32_t DefaultPageRows = 100;

/// Which rows of a listing the client asked for. A plain value.
struct ResultState {
  bool HasRows = false;      ///< set by the listing operation: the statement's first step gave a row
  std::int32_t Skip = 0;     ///< leading rows to pass over; 0 or less passes over none
  std::int32_t Limit = -1;   ///< most rows to return; negative: DefaultLimit; 0: count only
  std::int32_t DefaultLimit; ///< the limit when Limit is negative; negative: no rows, counted only

  ResultState() : ResultState(DefaultPageRows) {}
  explicit ResultState(std::int32_t default_limit) : DefaultLimit(default_limit) {}
};

// Keys of a listing in the response dictionary and, for a host, of its query parameters.
TN_API extern const std::string skip;
TN_API extern const std::string limit;
TN_API extern const std::string total;
TN_API extern const std::string results;
TN_API extern const std::string all;

} // namespace Perenna::PagedResults

namespace Perenna::Sqlite3 {

/// Writes one page of an executed statement into `response_document`: "skip" as requested, "limit" (the smaller of the
/// total and the effective limit), "total" (all rows of the result) and "results" (an array of row dictionaries in the
/// statement's order). Rows outside the page are stepped over without reading their columns.
///
/// `query` was executed without a failure and `page_params.HasRows` tells whether that gave a row. A step that fails
/// ends the page early, with the rows delivered until then. The caller holds the connection's lock throughout.
template <class QueryClassT>
void GetPagedResults(QueryClassT& query, const PagedResults::ResultState& page_params, PListDict& response_document) {
  const std::int32_t effective_limit = page_params.Limit < 0 ? page_params.DefaultLimit : page_params.Limit;
  int total = 0;
  auto results = std::make_unique<PListArray>();

  if (page_params.HasRows) {
    for (std::int32_t skip = page_params.Skip; skip > 0 && query.DiscardNextResult(); --skip) {
      ++total;
    }
    for (std::int32_t fetched = 0; fetched < effective_limit; ++fetched) {
      auto item_dict = std::make_unique<PListDict>();
      if (!query.GetNextResult(*item_dict)) {
        break;
      }
      results->Append(std::move(item_dict));
      ++total;
    }
    while (query.DiscardNextResult()) {
      ++total;
    }
  }

  response_document.SetValue(PagedResults::skip, static_cast<int>(page_params.Skip));
  response_document.SetValue(PagedResults::limit, std::min<int>(total, effective_limit));
  response_document.SetValue(PagedResults::total, total);
  response_document.SetItem(PagedResults::results, results.release());
}

} // namespace Perenna::Sqlite3
