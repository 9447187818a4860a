#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kel::tests {

/// Every call into the recording SRC builder library since the list was last cleared, with its arguments and
/// what it returned. Hand the same list to the doubles of the input to see both sides in one order.
const std::shared_ptr<std::vector<std::string>>& recordedCalls();

/// Arrays handed to the builder and not freed by it yet.
int recordedArrays();

/// Makes the call with this number, counted from 0 since the list was cleared, throw std::runtime_error; -1
/// for none.
void failAtRecordedCall(int number);

} // namespace kel::tests
