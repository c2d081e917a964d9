// A host that writes numbers in another way.
#ifndef MPBP_TESTS_SUPPORT_COMMA_LOCALE_H_
#define MPBP_TESTS_SUPPORT_COMMA_LOCALE_H_

#include <locale>
#include <string>

namespace mpbp::test {

// Takes over the process's C++ locale, in which a thousand and a half is 1.000,5.
class CommaLocale {
 public:
  CommaLocale() : previous_(std::locale::global(std::locale(std::locale(), new Commas))) {}
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  ~CommaLocale() { std::locale::global(previous_); }

 private:
  class Commas : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };

  const std::locale previous_;
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_COMMA_LOCALE_H_
