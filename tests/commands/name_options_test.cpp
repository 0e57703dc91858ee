// The typed values of name options: conversion, lower-casing and refusals.
#include <boost/program_options/errors.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "commands/domain_name_option.h"
#include "commands/mail_name_option.h"
#include "runtime/idn.h"

namespace crelm::mail::sorvane_commands {
namespace {

namespace po = boost::program_options;

const std::string kLabel63(63, 'a');

std::string domain(const std::string& text) {
    return DomainNameTOpt::from_option_text(text).str();
}

std::string mail_name(const std::string& text) {
    return MailNameTOpt::from_option_text(text).str();
}

// The what() text of the std::runtime_error a conversion throws.
template <class Convert>
std::string refusal(Convert convert, const std::string& text) {
    try {
        convert(text);
    } catch (const po::error& e) {
        return std::string("option error: ") + e.what();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "accepted";
}

// The status and text of the IDNA error a conversion throws.
std::string idna_refusal(const std::string& text) {
    try {
        domain(text);
    } catch (const crelm::idn::IdnaError& e) {
        return std::to_string(e.status()) + " " + e.what();
    }
    return "no IDNA error";
}

TEST(DomainNameOptionTest, IsLowerCased) {
    EXPECT_EQ(domain("Example.TEST"), "example.test");
}

TEST(DomainNameOptionTest, InternationalisedNameBecomesItsAsciiForm) {
    EXPECT_EQ(domain("B\xc3\xbc" "cher.TEST"), "xn--bcher-kva.test");
}

TEST(DomainNameOptionTest, AsciiNamePassesUnchanged) {
    EXPECT_EQ(domain("mail-1.example.test"), "mail-1.example.test");
}

TEST(DomainNameOptionTest, HyphenAtTheStartOrEndOfAnInnerLabelIsRefused) {
    EXPECT_EQ(refusal(domain, "-a.test"), "-a.test - domain has incorrect format.");
    EXPECT_EQ(refusal(domain, "a-.test"), "a-.test - domain has incorrect format.");
    EXPECT_EQ(refusal(domain, "a.-test"), "a.-test - domain has incorrect format.");
}

TEST(DomainNameOptionTest, HyphenAtTheEndOfTheLastLabelIsAccepted) {
    EXPECT_EQ(domain("a.test-"), "a.test-");
}

TEST(DomainNameOptionTest, EmptyLabelsAreRefusedByIdna) {
    EXPECT_EQ(idna_refusal("a..test"), "5 Invalid length");
    EXPECT_EQ(idna_refusal(".a.test"), "5 Invalid length");
}

TEST(DomainNameOptionTest, SixtyFourCharacterLabelIsRefusedByIdna) {
    EXPECT_EQ(domain(kLabel63 + ".test"), kLabel63 + ".test");
    EXPECT_EQ(idna_refusal(kLabel63 + "a.test"), "5 Invalid length");
}

TEST(DomainNameOptionTest, TrailingDotIsRefusedByTheNameCheck) {
    EXPECT_EQ(refusal(domain, "a.test."), "a.test. - domain has incorrect format.");
}

TEST(DomainNameOptionTest, UpTo255CharactersAreAccepted) {
    const std::string name = kLabel63 + "." + kLabel63 + "." + kLabel63 + "." + kLabel63;
    ASSERT_EQ(name.size(), 255u);
    EXPECT_EQ(domain(name), name);
    const std::string longer = kLabel63 + "." + kLabel63 + "." + kLabel63 + "." + std::string(62, 'a') + ".a";
    ASSERT_EQ(longer.size(), 256u);
    EXPECT_EQ(refusal(domain, longer), longer + " - domain has incorrect format.");
}

TEST(DomainNameOptionTest, CharactersOutsideLettersDigitsAndHyphenAreRefused) {
    EXPECT_EQ(refusal(domain, "a_b.test"), "a_b.test - domain has incorrect format.");
    EXPECT_EQ(refusal(domain, "a@b.test"), "a@b.test - domain has incorrect format.");
}

TEST(DomainNameOptionTest, ValueMustBeOneWord) {
    EXPECT_THROW(domain("a.test b.test"), po::invalid_option_value);
    EXPECT_THROW(domain(" a.test"), po::invalid_option_value);
    EXPECT_THROW(domain("a.test\t"), po::invalid_option_value);
    EXPECT_THROW(domain(""), po::invalid_option_value);
}

TEST(MailNameOptionTest, IsLowerCased) {
    EXPECT_EQ(mail_name("John.Doe"), "john.doe");
}

TEST(MailNameOptionTest, LettersDigitsAndSixPunctuationCharactersAreAccepted) {
    EXPECT_EQ(mail_name("O'Neil+Tag&x_y-z.w9"), "o'neil+tag&x_y-z.w9");
}

TEST(MailNameOptionTest, BadDotsAreRefused) {
    EXPECT_EQ(refusal(mail_name, "A..B"), "a..b - local part of mailname has incorrect format.");
    EXPECT_EQ(refusal(mail_name, ".a"), ".a - local part of mailname has incorrect format.");
    EXPECT_EQ(refusal(mail_name, "a."), "a. - local part of mailname has incorrect format.");
}

TEST(MailNameOptionTest, OtherCharactersAreRefused) {
    EXPECT_EQ(refusal(mail_name, "a@b"), "a@b - local part of mailname has incorrect format.");
    EXPECT_EQ(refusal(mail_name, "a/b"), "a/b - local part of mailname has incorrect format.");
    EXPECT_EQ(refusal(mail_name, "j\xc3\xb6hn"), "j\xc3\xb6hn - local part of mailname has incorrect format.");
}

TEST(MailNameOptionTest, UpTo245CharactersAreAccepted) {
    EXPECT_EQ(mail_name(std::string(245, 'M')), std::string(245, 'm'));
    EXPECT_EQ(refusal(mail_name, std::string(246, 'M')),
              std::string(246, 'm') + " - local part of mailname has incorrect format.");
}

TEST(MailNameOptionTest, ValueMustBeOneWord) {
    EXPECT_THROW(mail_name("john doe"), po::invalid_option_value);
    EXPECT_THROW(mail_name("john "), po::invalid_option_value);
    EXPECT_THROW(mail_name(""), po::invalid_option_value);
}

}  // namespace
}  // namespace crelm::mail::sorvane_commands
