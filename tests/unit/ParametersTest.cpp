// Parameters and the chains that they come from and go to.
#include "params/Parameters.h"

#include "fakes/PlatformTest.h"

namespace morwen {
namespace {

class ParametersTest : public PlatformTest {
protected:
    // What a typed getter answers for "key": the value as text, "absent", or what it throws.
    template <class Value>
    static std::string Get(const Parameters& i_parameters, const Value& i_untouched) {
        std::string result;
        const std::string thrown = Thrown([&] {
            Value value = i_untouched;
            const bool bFound = i_parameters.GetParameter(u"key", value);
            EXPECT_TRUE(bFound || value == i_untouched);
            if constexpr (std::is_same_v<Value, SString>) {
                result = bFound ? Utf8(value) : "absent";
            } else {
                result = bFound ? std::to_string(value) : "absent";
            }
            return bFound;
        });
        return thrown.empty() ? result : thrown;
    }
    static std::string GetAll(const Parameters& i_parameters) {
        return Get(i_parameters, SString(u"before")) + " " + Get(i_parameters, int64_t{77}) + " " +
               Get(i_parameters, true);
    }
};

TEST_F(ParametersTest, GettersByTagAndText) {
    const std::string mismatch = "100/42038/key";
    const std::string isText = mismatch + " " + mismatch;
    const std::string noBool = "Could not get a boolean from ";
    const struct {
        uint32_t m_nTag;
        const char16_t* m_pszText;
        std::string m_all, m_says;  // as text, long and boolean
    } aCases[] = {
        {1, u"text", "text " + isText, ""},
        {1, nullptr, " " + isText, ""},
        {2, u"-12", mismatch + " -12 " + mismatch, ""},
        {2, u"9223372036854775808", mismatch + " 100/42254 " + mismatch, "bConverted"},
        {2, nullptr, mismatch + " 100/42254 " + mismatch, "bConverted"},
        {3, u"1", isText + " 1", ""},
        {3, u"0", isText + " 0", ""},
        {3, u"-1", isText + " 0", ""},
        {3, u"TRUE", isText + " 100/42254", noBool + "TRUE for key"},
        {3, u" 1", isText + " 100/42254", noBool + " 1 for key"},
        {3, nullptr, isText + " 100/42254", noBool + " for key"},
        {0x302, u"5", mismatch + " 5 " + mismatch, "SequenceParser::Pop() -- key=key, value=5, type=2 "},
        {4, u"1", isText + " " + mismatch, ""},
    };
    for (const auto& test : aCases) {
        SCOPED_TRACE(test.m_all + test.m_says);
        EXPECT_EQ(GetAll(Parameters(Chain({{u"key", test.m_nTag, test.m_pszText}}))), test.m_all);
        EXPECT_TRUE(m_trace.Said({test.m_says, "p.m_eType == Parameter::"}));
    }
}

TEST_F(ParametersTest, ChecksKeysAlone) {
    const Parameters two(Chain({{u"a", 1, u"x"}, {u"b", 2, u"2"}}));
    EXPECT_TRUE(two.CheckParameters(Parameters(Chain({{u"b", 1, nullptr}}))));
    EXPECT_FALSE(two.CheckParameters(Parameters(Chain({{u"a", 1, u"x"}, {u"c", 1, u"x"}}))));
    EXPECT_FALSE(m_trace.Contains("Nothing to check!"));
    EXPECT_TRUE(Parameters().CheckParameters(Parameters()));
    EXPECT_TRUE(m_trace.Contains("Parameters::CheckParameters() -- Nothing to check!"));
}

TEST_F(ParametersTest, WritesOneSortedBlock) {
    Parameters parameters(Chain({{u"b", 2, u"2"}, {u"c", 7, nullptr}, {u"", 1, u"x"}}));
    parameters.SetParameter(u"a", false);
    ParasSeq* pChain = nullptr;
    parameters.ToParasSeq(&pChain);
    std::string text;
    for (size_t i = 0; i < 4; ++i) {  // as an array: it is one block, in order
        text += Utf8(pChain[i].key) + "=" + Utf8(pChain[i].value) + ":" + std::to_string(pChain[i].type) + " ";
        EXPECT_EQ(pChain[i].next, i < 3 ? &pChain[i + 1] : nullptr);
    }
    EXPECT_EQ(text, "null=x:1 a=0:3 b=2:2 c=null:7 ");
    Parameters::FreeSequence(pChain);
    Parameters::FreeSequence(nullptr);
    ParasSeq stale{};
    pChain = &stale;
    Parameters().ToParasSeq(&pChain);
    EXPECT_EQ(pChain, nullptr);
    EXPECT_TRUE(m_trace.Said({"Parameters::ToParasSeq() -- Overwriting non-NULL data!  Possible leak!"}));
    EXPECT_EQ(Thrown([&] { return parameters.ToParasSeq(nullptr), 0; }), "100/42254");
    EXPECT_TRUE(m_trace.Said({"Parameters::ToParasSeq() -- NULL pointer!"}));
}

}  // namespace
}  // namespace morwen
