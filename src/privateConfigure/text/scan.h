// Reading numbers and words out of a text that ends in a NUL, as scanf does it, whatever the locale.
#pragma once

namespace lenswire {

// Each step leaves off at the first thing that does not fit; after that nothing more is read.
class Scanner {
  public:
    explicit Scanner(const char* text) : at_(text) {}

    // Exactly this character, white space included.
    Scanner& literal(char expected);
    // Past white space, a sign if there is one, and digits; beyond the range of int the nearest int. Without
    // digits the value stays.
    Scanner& integer(int& value);
    // Past white space, up to `width` characters other than white space, and a NUL behind them. Without one
    // the word stays.
    Scanner& word(char* out, int width);

  private:
    void skip_space();

    const char* at_;
    bool fits_ = true;
};

}  // namespace lenswire
