// idn_toascii against an independent IDNA implementation: Python's built-in
// "idna" codec, run as a child process. Wherever both convert a name, the
// results must be equal.
#include <optional>
#include <string>
#include <vector>

#include "runtime/idn.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class IdnCrossCheckTest : public SandboxTest {};

const std::vector<std::string> kNames = {
    // ASCII, any case
    "example.com", "Example.COM", "MAIL.Example.Org", "xn--bcher-kva.example", "a.b.c.d.e",
    "localhost", "sub-domain.example-site.net", "1234.example", "x", "example.com.",
    // Unicode
    "bücher.example", "Bücher.Example", "BÜCHER.EXAMPLE", "müller.de", "straße.de", "ÄÖÜ.com",
    "пример.испытание", "ПРИМЕР.рф", "例え.テスト", "中文.中国", "한국.kr", "ελληνικά.gr",
    "ΕΛΛΗΝΙΚΆ.gr", "ς.gr", "עברית.il", "العربية.eg", "ไทย.th", "हिन्दी.in", "日本語ドメイン.jp",
    "café.fr", "CAFÉ.FR", "naïve.example", "ﬁle.example", "①.example", "Ω.example", "€uro.example",
    "mail.bücher.example", "bücher.mail.example", "crème-brûlée.example", "ℌello.example",
    "ｆｕｌｌｗｉｄｔｈ.example", "a。b。c", "xn--e1afmkfd.xn--p1ai", "øl.no", "smörgåsbord.se",
    "żółć.pl", "čeština.cz", "türkçe.tr", "việtnam.vn", "ísland.is",
    // invalid for one or both
    "a..b", std::string(64, 'x') + ".example", "\xc8\xa1x.example", "\xe2\x80\x8ex.example",
    "\xff.example", "ab\xd8\xa7" "1.example", "ẞ.example", std::string(63, 'y') + "ü.example",
};

// Hex of each name, one a line; Python answers with the hex of the ASCII form
// or "-" when its codec refuses the name.
std::string to_hex(const std::string& text) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const unsigned char c : text) {
        hex += kDigits[c >> 4];
        hex += kDigits[c & 15];
    }
    return hex;
}

std::vector<std::optional<std::string>> python_conversions(const std::vector<std::string>& names) {
    std::string input;
    for (const std::string& name : names)
        input += to_hex(name) + "\n";
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = input;
    const std::string script =
        "import sys\n"
        "for line in sys.stdin.read().split():\n"
        "    try:\n"
        "        print(bytes.fromhex(line).decode('utf-8').encode('idna').hex())\n"
        "    except Exception:\n"
        "        print('-')\n";
    const auto result = run_process({"/usr/bin/python3", "-c", script}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<std::optional<std::string>> answers;
    std::size_t start = 0;
    for (std::size_t end; (end = result.out.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string hex = result.out.substr(start, end - start);
        if (hex == "-") {
            answers.emplace_back(std::nullopt);
            continue;
        }
        std::string text;
        for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
            text += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
        answers.emplace_back(text);
    }
    return answers;
}

TEST_F(IdnCrossCheckTest, AgreesWithPythonsIdnaCodecWhereverBothConvert) {
    ASSERT_GE(kNames.size(), 50u);
    const auto theirs = python_conversions(kNames);
    ASSERT_EQ(theirs.size(), kNames.size());
    std::size_t both = 0;
    for (std::size_t i = 0; i < kNames.size(); ++i) {
        const std::optional<std::string> ours = idn_toascii(kNames[i]);
        if (ours && theirs[i]) {
            ++both;
            EXPECT_EQ(*ours, *theirs[i]) << kNames[i];
        }
    }
    EXPECT_GE(both, 45u);
}

TEST_F(IdnCrossCheckTest, BothRefuseTheClearlyInvalidNames) {
    const std::vector<std::string> invalid = {"a..b", std::string(64, 'x') + ".example",
                                              std::string(63, 'y') + "ü.example", "\xff.example"};
    const auto theirs = python_conversions(invalid);
    ASSERT_EQ(theirs.size(), invalid.size());
    for (std::size_t i = 0; i < invalid.size(); ++i) {
        EXPECT_EQ(idn_toascii(invalid[i]), std::nullopt) << to_hex(invalid[i]);
        EXPECT_EQ(theirs[i], std::nullopt) << to_hex(invalid[i]);
    }
}

}  // namespace
}  // namespace sorvane::test
