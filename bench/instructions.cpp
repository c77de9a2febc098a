// SPDX-License-Identifier: Apache-2.0
// Runs each of the library's operations under callgrind, which counts the instructions of the calls alone and
// stores them operation by operation.
#include <cstddef>
#include <string>
#include <vector>

#include "bench/counted_calls.h"
#include "bench/operations.h"
#include "inspect/vorn_inspect.h"

namespace bench {
namespace {

// Large messages are called less often: in callgrind they take long, and their records hold many values
// anyway.
constexpr std::size_t kCalls = 200;
constexpr std::size_t kCallsOfLarge = 10;
constexpr std::size_t kLargeBytes = 2000;
constexpr std::uint32_t kMostElements = 100;

// Not of libvorn_nac_user; it may cost little more than its unpack.
template <class Record>
std::uint32_t verify(const Sample& sample, void* /*output*/, std::uint32_t /*capacity*/) {
    static const vorn_type* const type =
        vorn_inspect_type_by_id(vorn_nac_catalogue(), kaplo::message_id<Record>);
    return vorn_inspect_verify(type, sample.bytes, sample.length, nullptr, nullptr);
}

template <class Record>
void run_all(const Shape& shape, Content content) {
    const Workload<Record> workload(shape, content);
    const std::size_t calls = workload.compact().front().size() > kLargeBytes ? kCallsOfLarge : kCalls;
    std::vector<Operation> operations = workload.operations();
    operations.push_back({"verify", &verify<Record>, samples_of(workload.compact())});
    if (workload.has_image) {
        operations.push_back({"verify image", &verify<Record>, samples_of(workload.images())});
    }
    for (const Operation& operation : operations) {
        const std::size_t batches = operation.name.starts_with("send ") ? kCallsOfLarge : calls;
        count_calls(std::string(shape.name) + "/" + name_of(content) + "/" + operation.name, operation,
                    batches);
    }
}

}  // namespace
}  // namespace bench

int main() {
    if (!RUNNING_ON_VALGRIND) bench::give_up("runs under valgrind --tool=callgrind only");
    bench::each_message([]<class Record>(const bench::Shape& shape) {
        if (shape.data_flow_elements > bench::kMostElements) return;
        bench::run_all<Record>(shape, bench::Content::same);
        bench::run_all<Record>(shape, bench::Content::varied);
    });
}
