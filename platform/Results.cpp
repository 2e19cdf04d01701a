#include "PN_error.h"
#include "PN_PagedResults.h"

namespace Tarn {

Result_t::Result_t(int code, const std::string& code_symbol, const std::string& code_message)
    : value(code), label(code_symbol + " (" + std::to_string(code) + ")"), symbol(code_symbol), message(code_message) {}

// clang-format off
const Result_t RESULT_OK        (  0, "OK",         "Success.");
const Result_t RESULT_FALSE     (  1, "FALSE",      "Successful but not true.");
const Result_t RESULT_ALLOC     ( -4, "ALLOC",      "Error allocating memory.");
const Result_t RESULT_PARAM     ( -5, "PARAM",      "Invalid parameter.");
const Result_t RESULT_NOTIMPL   ( -6, "NOTIMPL",    "Unimplemented Feature.");
const Result_t RESULT_INIT      ( -8, "INIT",       "The object is not yet initialized.");
const Result_t RESULT_NOT_FOUND ( -9, "NOT_FOUND",  "The requested file does not exist on the system.");
const Result_t RESULT_STATE     (-11, "STATE",      "Object state error.");
const Result_t RESULT_FILEEXISTS(-18, "FILEEXISTS", "Filename already exists.");
// clang-format on

} // namespace Tarn

namespace Perenna {

const Result_t RESULT_PN_SETUP(-301, "PN_SETUP", "System configuration error.");
const Result_t RESULT_DB_FAILURE(-420, "DB_FAILURE", "General database failure.");

namespace PagedResults {
const std::string skip = "skip";
const std::string limit = "limit";
const std::string total = "total";
const std::string results = "results";
const std::string all = "all";
} // namespace PagedResults

} // namespace Perenna
