// The load client's reply parser: every row is fed whole, cut in two at every byte, and a byte at
// a time, and must read the same blocks each way.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bench/ReplyParser.h"

namespace {

// The blocks read, as text: {reply,reply} for a block, !text for a host error; then "error: why"
// when the stream broke.
std::string Read(Dialect dialect, const std::vector<std::string_view>& pieces) {
    CReplyParser parser(dialect);
    std::string out;
    for (std::string_view bytes : pieces) {
        for (;;) {
            const CReplyParser::Result result = parser.Parse(bytes);
            if (result == CReplyParser::Result::kNeedMore) break;
            if (result == CReplyParser::Result::kError) return out + "error: " + parser.Why();
            if (parser.IsFailure()) {
                out += "!" + std::string(parser.Failure());
                continue;
            }
            out += '{';
            for (size_t i = 0; i < parser.Count(); ++i) out += (i ? "," : "") + std::string(parser.Reply(i));
            out += '}';
        }
        EXPECT_TRUE(bytes.empty());
    }
    return out;
}

struct Row {
    Dialect dialect;
    std::string bytes;
    std::string blocks;  // what Read gives, up to the error's reason
};

const Row kRows[] = {
    {Dialect::kCounted, "+1\n8:Var1=100\n", "{Var1=100}"},
    // Empty answers and replies, and reply bytes that look like framing.
    {Dialect::kCounted, "+0\n+3\n0:\n3:a\nb\n5:+1\n1:\n", "{}{,a\nb,+1\n1:}"},
    {Dialect::kCounted, "+1\n1:?\n-line too long\n", "{?}!line too long"},
    {Dialect::kCounted, "1:a\n", "error: a block header '1:a'"},
    {Dialect::kCounted, "+2\n1:a\n", ""},  // incomplete: nothing reported yet
    {Dialect::kCounted, "+1\n3:abcX", "error: a reply's bytes end with 'X'"},
    {Dialect::kCounted, "+1\n1a:", "error: a reply's length '1a' is not a number"},
    {Dialect::kCounted, "+1\n1234567890:", "error: a reply's length '123456789...' is too long"},
    {Dialect::kCounted, "+1\n16777213:", "error: a block larger than 16 MiB"},
    {Dialect::kCounted, "+1\n16777212:", ""},  // fits: waits for its bytes
    {Dialect::kCounted, "+4194305\n", "error: a block of 4194305 replies"},
    {Dialect::kCounted, "+1\r\n", "error: a block header '+1\\x0d'"},
    {Dialect::kRedis, "+PONG\r\n:42\r\n$3\r\na\nb\r\n$0\r\n\r\n$-1\r\n-ERR x\r\n", "{PONG}{42}{a\nb}{}{}!ERR x"},
    {Dialect::kRedis, "+PONG\n", "error: a line '+PONG' not ended by CR LF"},
    {Dialect::kRedis, "$3\r\nabcd\r\n", "error: a reply's bytes end with 'd'"},
    {Dialect::kRedis, "*1\r\n$4\r\nPONG\r\n", "error: a reply '*1' of a type"},
};

// An error's reason may go on past what the row spells out.
void ExpectBlocks(const Row& row, const std::string& got, const std::string& how) {
    const bool broken = row.blocks.find("error: ") != std::string::npos;
    EXPECT_EQ(row.blocks, broken ? got.substr(0, row.blocks.size()) : got)
        << how << " of " << testing::PrintToString(row.bytes);
}

TEST(ReplyParser, SameBlocksHoweverTheBytesAreCut) {
    for (const Row& row : kRows) {
        const std::string_view bytes = row.bytes;
        ExpectBlocks(row, Read(row.dialect, {bytes}), "whole");
        for (size_t cut = 1; cut < bytes.size(); ++cut)
            ExpectBlocks(row, Read(row.dialect, {bytes.substr(0, cut), bytes.substr(cut)}), "cut at " + std::to_string(cut));
        std::vector<std::string_view> single;
        for (size_t i = 0; i < bytes.size(); ++i) single.push_back(bytes.substr(i, 1));
        ExpectBlocks(row, Read(row.dialect, single), "a byte at a time");
    }
}

// A server that never ends a line must not make the client hold all it sends.
TEST(ReplyParser, LineWithoutEndIsRefusedAtItsLimit) {
    const std::string piece(4096, 'x');
    CReplyParser parser(Dialect::kCounted);
    size_t fed = 0;
    CReplyParser::Result result = CReplyParser::Result::kNeedMore;
    while (result == CReplyParser::Result::kNeedMore && fed <= 2 * CReplyParser::kMaxLine) {
        std::string_view bytes = piece;
        result = parser.Parse(bytes);
        fed += piece.size();
    }
    EXPECT_EQ(CReplyParser::Result::kError, result);
    EXPECT_LE(fed, CReplyParser::kMaxLine + piece.size());
    std::string_view more = "+0\n";
    EXPECT_EQ(CReplyParser::Result::kError, parser.Parse(more));  // broken for good
}

}  // namespace
