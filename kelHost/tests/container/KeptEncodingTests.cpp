#include "container/KeptEncoding.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kel::host {

namespace {

std::optional<StoredFormat> Format(Coding coding, std::uint32_t bits) {
    StoredFormat format;
    format.coding = coding;
    format.bits = bits;
    return format;
}

} // namespace

TEST(KeptEncoding, IsTheInputsOrTheNextThatHoldsIt) {
    struct Row {
        std::optional<StoredFormat> stored;
        const char* inWAVE;
        const char* inAIFF;
    };
    for (const Row& row : {
             Row{Format(Coding::Integer, 8), "int16", "int16"},
             Row{Format(Coding::Integer, 16), "int16", "int16"},
             Row{Format(Coding::Integer, 20), "int24", "int24"},
             Row{Format(Coding::Integer, 24), "int24", "int24"},
             Row{Format(Coding::Integer, 32), "int32", "int32"},
             Row{Format(Coding::Integer, 64), "int32", "int32"}, // no source delivers more
             Row{Format(Coding::Float, 32), "float32", "int24"},
             Row{Format(Coding::Float, 64), "float64", "int24"},
             Row{Format(Coding::Lossy, 0), "float32", "int24"},
             Row{std::nullopt, "float32", "int24"},
         }) {
        SCOPED_TRACE(row.stored.has_value() ? row.stored->bits : 0);
        EXPECT_EQ(KeptEncoding(row.stored, *FindContainer("wave")).name, row.inWAVE);
        EXPECT_EQ(KeptEncoding(row.stored, *FindContainer("rf64")).name, row.inWAVE);
        EXPECT_EQ(KeptEncoding(row.stored, *FindContainer("aiff")).name, row.inAIFF);
    }
}

} // namespace kel::host
