// Which views reach the page: each case hides a marker text somewhere in a tree and says whether
// the page's text may show it.
#include <gtest/gtest.h>

#include <functional>
#include <type_traits>

#include "platform/uikit/UITextField.h"
#include "tests/capture/screen/ScreenTestSupport.h"

using namespace platform;
using namespace qlm_test;

namespace {

class KeyboardHost : public UIView {
    PLATFORM_OBJC_CLASS_NAMED(KeyboardHost, UIView, "HostApp.UIRemoteInputSetContainerView")
};
class KeyboardHostLowercase : public UIView {
    PLATFORM_OBJC_CLASS_NAMED(KeyboardHostLowercase, UIView, "HostApp.UIRemoteInputSetcontainerView")
};
class NamedLikeKeyboardHost : public UIView {
    PLATFORM_OBJC_CLASS_NAMED(NamedLikeKeyboardHost, UIView, "HostApp.InputSetContainerViewBackdrop")
};
class PinField : public UITextField {
    PLATFORM_OBJC_CLASS_NAMED(PinField, UITextField, "HostApp.PinField")
};

// "café" composed, "noël" decomposed (e and U+0308), and a plain tag that a ligature only resembles.
const std::set<std::string> kTags = {"secret-card", "", "caf\xC3\xA9", "noe\xCC\x88l", "file"};
const CGRect kCard = CGRectMake(10, 10, 300, 100);

// A View holding a label with the marker (whose identifier is no tag); `prepare` dresses the View.
template <class View = UIView>
auto card(std::type_identity_t<std::function<void(View&)>> prepare = [](View&) {}) {
    return [prepare](const std::string& marker) -> std::shared_ptr<UIView> {
        auto view = UIView::make<View>(kCard);
        auto text = label(CGRectMake(10, 60, 250, 30), marker);
        text->setAccessibilityIdentifier("public");
        view->addSubview(text);
        prepare(*view);
        return view;
    };
}

void secureWithText(UITextField& field) {
    field.setSecureTextEntry(true);
    field.setText("hunter2");
}

// A field whose own drawing shows the marker, as its text or its placeholder.
auto field(bool secure, bool hasText, bool editing) {
    return [=](const std::string& marker) -> std::shared_ptr<UIView> {
        auto field = UIView::make<UITextField>(kCard);
        field->setSecureTextEntry(secure);
        if (hasText) {
            field->setText(marker);
        } else {
            field->setPlaceholder(marker);
        }
        if (editing) field->becomeFirstResponder();
        return field;
    };
}

struct RedactionCase {
    const char* name;
    std::function<std::shared_ptr<UIView>(const std::string& marker)> build;  // the root of the tree
    bool shown;
};

void PrintTo(const RedactionCase& c, std::ostream* os) {
    *os << c.name;
}

class Redaction : public ::testing::TestWithParam<RedactionCase> {};

TEST_P(Redaction, LeavesOutExactlyTheViewsThatMustNotBeRecorded) {
    const auto& c = GetParam();
    const std::string marker = std::string("Marker") + c.name;
    auto root = UIView::make(CGRectMake(0, 0, 400, 300));
    root->addSubview(label(CGRectMake(10, 200, 300, 40), "AlwaysThere"));
    root->addSubview(c.build(marker));

    const std::string text = render({root}, kTags).text();
    EXPECT_NE(text.find("AlwaysThere"), std::string::npos) << text;
    EXPECT_EQ(text.find(marker) != std::string::npos, c.shown) << text;
}

INSTANTIATE_TEST_SUITE_P(
    ViewWalk, Redaction,
    ::testing::Values(
        RedactionCase{"TaggedWithSubviewsOfOtherIds",
                      card([](UIView& v) { v.setAccessibilityIdentifier("secret-card"); }), false},
        RedactionCase{"TagInAnotherCase",
                      card([](UIView& v) { v.setAccessibilityIdentifier("Secret-Card"); }), true},
        // Canonically equivalent spellings are equal; compatibility equivalents are not.
        RedactionCase{"TagSpelledDecomposed",
                      card([](UIView& v) { v.setAccessibilityIdentifier("cafe\xCC\x81"); }), false},
        RedactionCase{"TagSpelledComposed",
                      card([](UIView& v) { v.setAccessibilityIdentifier("no\xC3\xABl"); }), false},
        RedactionCase{"LigatureIsNoTag", card([](UIView& v) { v.setAccessibilityIdentifier("\xEF\xAC\x81le"); }),
                      true},
        RedactionCase{"IdentifierNotUTF8", card([](UIView& v) { v.setAccessibilityIdentifier("caf\xE9"); }),
                      true},
        // The tags include the empty string, which an absent identifier must not match.
        RedactionCase{"NoIdentifier", card(), true},
        RedactionCase{"EmptyIdentifierTagged", card([](UIView& v) { v.setAccessibilityIdentifier(""); }),
                      false},
        RedactionCase{"HiddenAncestor", card([](UIView& v) { v.setHidden(true); }), false},
        RedactionCase{"Transparent", card([](UIView& v) { v.setAlpha(0); }), true},
        RedactionCase{"KeyboardHostBehindModulePrefix", card<KeyboardHost>(), false},
        RedactionCase{"KeyboardSuffixInAnotherCase", card<KeyboardHostLowercase>(), true},
        RedactionCase{"ClassOnlyBeginningLikeKeyboardHost", card<NamedLikeKeyboardHost>(), true},
        RedactionCase{"SecureFieldWithText", card<UITextField>(secureWithText), false},
        RedactionCase{"SecureFieldSubclassWithText", card<PinField>(secureWithText), false},
        RedactionCase{"SecureFieldEmptyWhileEditing", field(true, false, true), false},
        RedactionCase{"SecureFieldEmptyShowsPlaceholder", field(true, false, false), true},
        RedactionCase{"PlainFieldShowsItsText", field(false, true, true), true}),
    [](const ::testing::TestParamInfo<RedactionCase>& info) { return std::string(info.param.name); });

}  // namespace
