#include "host/provider/crypto/symmetric/hash_run.h"

#include <algorithm>

#include "host/provider/crypto/symmetric/block_lanes.h"

namespace nalhost::crypto::symmetric {

HashBlocks HashBlocksOf(Kernel kernel) {
    return kernel >= Kernel::kAvx512 && kHashBlocksAvx512 != nullptr ? kHashBlocksAvx512 : HashBlocksPortable;
}

void UpdateHash(const SboxTables& tables, HashBlocks kernel, HashRun& run, ByteView data) {
    run.size += data.size();
    if (run.pendingSize != 0) {
        const std::size_t taken = std::min(data.size(), kHashBlockSize - run.pendingSize);
        std::copy_n(data.begin(), taken, run.pending + run.pendingSize);
        run.pendingSize += taken;
        data = data.subspan(taken);
        if (run.pendingSize < kHashBlockSize) return;
        run.pendingSize = 0;
        WithWipedStack([&] { kernel(tables, run, run.pending, 1); }, WipeShallowStack);
    }
    if (const std::size_t count = data.size() / kHashBlockSize; count != 0) {
        WithWipedStack([&] { kernel(tables, run, data.data(), count); }, WipeShallowStack);
        data = data.subspan(count * kHashBlockSize);
    }
    std::copy(data.begin(), data.end(), run.pending);
    run.pendingSize = data.size();
}

void FinishHash(const SboxTables& tables, HashBlocks kernel, HashRun& run) {
    WithWipedStack(
        [&] {
            if (run.pendingSize != 0) {
                std::fill(run.pending + run.pendingSize, std::end(run.pending), std::uint8_t{0});
                kernel(tables, run, run.pending, 1);
                run.pendingSize = 0;
            }
            // The sum is complete: what these two blocks add to it is not looked at.
            std::uint8_t block[2 * kHashBlockSize]{};
            Store(run.size << 3, block);  // in bits
            Store(run.size >> 61, block + 8);
            for (std::size_t i = 0; i < 4; ++i)
                Store(run.sum[i], block + kHashBlockSize + 8 * i);
            kernel(tables, run, block, 2);
            for (std::size_t i = 0; i < 4; ++i)
                Store(run.value[i], run.digest + 8 * i);
        },
        WipeShallowStack);
}

}  // namespace nalhost::crypto::symmetric
