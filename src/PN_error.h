#pragma once

#include "TN_error.h"

namespace Perenna {

using Tarn::Result_t;

// The framework's codes. Constructed when the library is loaded, never changed afterwards; any thread may read them.

TN_API extern const Result_t RESULT_PN_SETUP;   ///< -301: the configuration, or what it names, cannot be used
TN_API extern const Result_t RESULT_DB_FAILURE; ///< -420: a statement was not prepared, bound or stepped

} // namespace Perenna
