// The operators the converter knows: those it maps to layer records, those it
// removes, and those it only evaluates while folding constants (an instance of
// the last kind that still reads a non-constant value after folding is refused).
#pragma once

#include <string>

namespace tarn {
namespace convert {

bool IsKnownOperator(const std::string& op);
// Operators that only exist to compute shapes and other constants.
bool IsFoldingOperator(const std::string& op);

}  // namespace convert
}  // namespace tarn
