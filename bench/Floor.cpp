// The floor: the least work any implementation must do for a line such as "Obj4711.Sub1?" or
// "Obj4711.Sub1=250", written directly against libc and the standard library. The protocol
// benchmarks are read as multiples of it.
#include <cwchar>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/Rig.h"

namespace {

// Per line: find its end, split the name from "?" or "=", compare the name's first part without
// regard to case, look the name up in a hashed table under a key of its own, store an assigned
// value, format the value as the reply and convert the reply to UTF-8 bytes.
void BM_Floor(benchmark::State& state) {
    const int kNames = static_cast<int>(state.range(0));
    std::unordered_map<std::wstring, int> table;
    std::vector<std::wstring> names;
    for (int i = 0; i < kNames; ++i) {
        names.push_back(L"Obj" + std::to_wstring(i) + L".Sub" + std::to_wstring(i % 10));
        table[names.back()] = i;
    }
    // Every name once, shuffled; even lines query (the reply is the name's number), odd lines
    // assign a three-digit value (the reply is that value). No name is both queried and assigned,
    // so every pass over the input replies the same bytes: before[k] of them before line k.
    std::wstring input;
    std::vector<int64_t> before{0};
    for (int i : Shuffled(kNames)) {
        const int line = static_cast<int>(before.size()) - 1;
        if (line % 2 == 0) {
            input += names[static_cast<size_t>(i)] + L"?\r\n";
            before.push_back(before.back() + static_cast<int64_t>(std::to_string(i).size()));
        } else {
            input += names[static_cast<size_t>(i)] + L"=" + std::to_wstring(100 + line % 900) + L"\r\n";
            before.push_back(before.back() + 3);
        }
    }
    LocaleScope utf8("C.UTF-8");
    if (!utf8.Set()) {
        state.SkipWithError("no C.UTF-8 locale");
        return;
    }
    const wchar_t* const begin = input.data();
    const wchar_t* const stop = begin + input.size();
    const wchar_t* line = begin;
    int64_t answered = 0, bytes = 0;
    for (auto _ : state) {
        const wchar_t* const feed = std::wmemchr(line, L'\n', static_cast<size_t>(stop - line));
        const wchar_t* const end = feed > line && feed[-1] == L'\r' ? feed - 1 : feed;
        const wchar_t* op = line;
        while (op < end && *op != L'?' && *op != L'=') ++op;
        if (op < end && wcsncasecmp(line, L"obj", 3) == 0) {
            const auto found = table.find(std::wstring(line, op));
            wchar_t* parsed = nullptr;
            if (*op == L'=' && found != table.end()) found->second = static_cast<int>(std::wcstol(op + 1, &parsed, 10));
            if (found != table.end() && (*op == L'?' ? op + 1 == end : parsed == end)) {
                wchar_t reply[16];
                char out[64];
                std::swprintf(reply, 16, L"%d", found->second);
                bytes += static_cast<int64_t>(std::wcstombs(out, reply, sizeof out));
                ++answered;
            }
        }
        line = feed + 1 == stop ? begin : feed + 1;
    }
    const int64_t lines = state.iterations();
    const int64_t expected = lines / kNames * before.back() + before[static_cast<size_t>(lines % kNames)];
    if (answered != lines || bytes != expected) {
        const std::string error = std::to_string(answered) + " of " + std::to_string(lines) + " lines answered with " +
                                  std::to_string(bytes) + " bytes, expected " + std::to_string(expected);
        state.SkipWithError(error.c_str());
        return;
    }
    state.SetItemsProcessed(lines);
}

}  // namespace

// 10,000 names, as the protocol benchmarks' table; and 1,000,000, to show what a table of that
// size costs the floor itself once it no longer fits the caches.
BENCHMARK(BM_Floor)->Arg(10000)->Arg(1000000);
