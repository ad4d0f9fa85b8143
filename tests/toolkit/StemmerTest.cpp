#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "lorvale/toolkit/analysis.h"

namespace brindle::testing {
namespace {

std::string stemOf(std::string word) {
    Stem(word.data());
    return word.c_str();
}

TEST(Stemmer, CutsSuffixesByItsRules) {
    std::istringstream rows(
        "caresses caress  ponies poni  cats cat  feed feed  agreed agre  plastered plastere  bled bled  "
        "motoring motore  sing sing  conflated conflate  troubled troubl  sized size  hopping hop  "
        "falling fall  hissing hiss  filing file  using use  happy happi  sky sky  relational relate  "
        "conditional condition  rational ration  differentli differ  vileli vile  predication predic  "
        "operator oper  doctor doct  feudalism feudal  decisiveness decis  hopefulness hopeful  "
        "electrical electr  goodness good  allowance allow  adjustment adjust  replacement replace  "
        "adoption adopt  relationship relat  friendship friend  government govern  cease ceas  "
        "probate probate  rate rate  controll controll  roll roll  is i  s s  ship ship  ed ed  ing ing  "
        "hurrying hurry  hurry hurri  o'clock o'clock  3.14 3.14  don't don't  dog's dog  dog\xD5s dog  "
        "dog\xABs dog  dog`s dog  mail's mail  caf\xE9s caf\xE9s");
    for (std::string word, stem; rows >> word >> stem;) EXPECT_EQ(stemOf(word), stem) << word;
    for (const std::string word : {"", "a b's"}) EXPECT_EQ(stemOf(word), word);
}

}  // namespace
}  // namespace brindle::testing
