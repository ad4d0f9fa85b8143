#include <gtest/gtest.h>

#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

/// What other programs encoded, beside the plain form.
class RealCodecData : public ::testing::Test {
protected:
    void SetUp() override {
        const auto shared = sharedData();
        if (!shared) GTEST_SKIP() << "the folder of real mail is absent";
        _folder = *shared / "encodings/mimekit/encoders";
    }
    Data file(std::string_view name) const { return Data(readFile(_folder / name)); }
    std::filesystem::path _folder;
};

TEST_F(RealCodecData, ThePhotoIsTheSameInAllItsForms) {
    const auto photo = file("photo.jpg");
    EXPECT_EQ(decodeBase64(file("photo.b64")), photo);
    EXPECT_EQ(trimmed(encodeBase64(photo).view()), trimmed(file("photo.b64").view()));
    for (const auto* name : {"photo.uu", "photo.uu-states"}) {  // the latter with lines that resemble "begin"
        std::string fileName;
        int mode = 0;
        EXPECT_EQ(uudecodedDataIntoFile(file(name), &fileName, &mode), photo);
        EXPECT_EQ(fileName, "photo.jpg");
        EXPECT_EQ(mode, 0644);
    }
    EXPECT_EQ(uuencodedDataWithFile(photo, "photo.jpg", 0644), file("photo.uu"));
}

TEST_F(RealCodecData, QuotedPrintableTextReadsAsItsPlainForm) {
    EXPECT_EQ(decodeQuotedPrintable(file("wikipedia.qp")), file("wikipedia.txt"));
    EXPECT_EQ(decodeQuotedPrintable(encodeQuotedPrintable(file("wikipedia.txt"))), file("wikipedia.txt"));
}

}  // namespace
}  // namespace lorvale
