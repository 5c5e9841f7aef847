// The command language: any line gets a command with arguments inside the line, or an error with a
// column inside it or where the next word would stand.
#include "chassis/ctl/grammar.h"
#include "fuzz/input.h"
#include "fuzz/words.h"

namespace {

bool is_inside(std::string_view part, std::string_view line) {
    return part.data() >= line.data() && part.data() + part.size() <= line.data() + line.size();
}

void check(const ctl::Parsed &parsed, std::string_view line) {
    if (parsed.error) {
        fuzz::require(parsed.error->column >= 1 && parsed.error->column <= line.size() + 2,
                      "the column is in the line");
        fuzz::require(!parsed.error->text.empty(), "an error says what it is");
        return;
    }
    for (const ctl::Argument &argument : parsed.arguments) {
        fuzz::require(argument.value.empty() || is_inside(argument.value, line),
                      "a value is part of the line");
        fuzz::require(parsed.has(argument.key), "an argument is found by its key");
        (void)parsed.number(argument.key);
    }
    fuzz::require(parsed.command != nullptr || ctl::split_words(line).empty(),
                  "no command without an error");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text = fuzz::expand({reinterpret_cast<const char *>(data), size});
    const fuzz::Block block = fuzz::exact_block(text.size());
    std::copy(text.begin(), text.end(), block.get());
    const std::string_view line(reinterpret_cast<const char *>(block.get()), text.size());
    check(ctl::parse(line), line);
    for (const std::string &word : ctl::complete(line))
        fuzz::require(!word.empty(), "a completion is a word");
    (void)ctl::help(line);
    return 0;
}
