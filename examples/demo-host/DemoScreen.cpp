#include "examples/demo-host/DemoScreen.h"

#include <algorithm>
#include <string>

#include "platform/coregraphics/CGColorSpace.h"
#include "platform/coregraphics/CGContext.h"
#include "platform/coregraphics/CGPath.h"
#include "platform/uikit/UIColor.h"
#include "platform/uikit/UIFont.h"
#include "platform/uikit/UIImage.h"
#include "platform/uikit/UIImageView.h"
#include "platform/uikit/UILabel.h"
#include "platform/uikit/UIScreen.h"
#include "platform/uikit/UITextField.h"
#include "platform/uikit/UIViewController.h"

using namespace platform;

namespace demo {

namespace {

constexpr CGFloat kWidth = 390;
constexpr CGFloat kHeight = 844;
constexpr CGFloat kRowHeight = 56;
constexpr CGFloat kRowGap = 8;

std::shared_ptr<UIColor> accent() {
    return UIColor::colorWithRed(0.20, 0.42, 0.92, 1);
}
std::shared_ptr<UIColor> hairline() {
    return UIColor::colorWithRed(0.82, 0.84, 0.88, 1);
}
std::shared_ptr<UIColor> secondaryText() {
    return UIColor::colorWithWhite(0.42, 1);
}

std::shared_ptr<UILabel> addLabel(const std::shared_ptr<UIView>& parent, CGRect frame, std::string text,
                                  std::shared_ptr<UIFont> font,
                                  std::shared_ptr<UIColor> color = UIColor::blackColor()) {
    auto label = UIView::make<UILabel>(frame);
    label->setText(std::move(text));
    label->setFont(std::move(font));
    label->setTextColor(std::move(color));
    parent->addSubview(label);
    return label;
}

void makeCard(UIView& view, CGFloat radius) {
    view.setBackgroundColor(UIColor::whiteColor());
    view.layer()->setCornerRadius(radius);
    view.layer()->setBorderWidth(1);
    view.layer()->setBorderColor(hairline()->CGColor());
    view.setClipsToBounds(true);
}

std::shared_ptr<UITextField> addField(const std::shared_ptr<UIView>& parent, CGRect frame, std::string text) {
    auto field = UIView::make<UITextField>(frame);
    field->setText(std::move(text));
    field->setFont(UIFont::systemFontOfSize(16));
    field->setBackgroundColor(UIColor::colorWithWhite(0.98, 1));
    field->layer()->setCornerRadius(8);
    field->layer()->setBorderWidth(1);
    field->layer()->setBorderColor(hairline()->CGColor());
    parent->addSubview(field);
    return field;
}

// The app's logo, drawn once: a blue-to-violet gradient square with a white ring, 64 points at
// scale 2.
std::shared_ptr<UIImage> makeLogo() {
    constexpr std::size_t kPixels = 128;
    const auto bitmap = CGBitmapContextCreate(nullptr, kPixels, kPixels, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                              kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little);
    if (!bitmap) return nullptr;
    constexpr int kBands = 32;
    constexpr CGFloat kBand = static_cast<CGFloat>(kPixels) / kBands;
    for (int band = 0; band < kBands; ++band) {
        const CGFloat t = static_cast<CGFloat>(band) / (kBands - 1);
        CGContextSetRGBFillColor(bitmap, 0.20 + 0.35 * t, 0.42 - 0.20 * t, 0.92, 1);
        CGContextFillRect(bitmap, CGRectMake(0, band * kBand, kPixels, kBand));
    }
    CGContextSetRGBFillColor(bitmap, 1, 1, 1, 1);
    CGContextAddPath(bitmap, CGPathCreateWithEllipseInRect(CGRectMake(28, 28, 72, 72), nullptr));
    CGContextAddPath(bitmap, CGPathCreateWithEllipseInRect(CGRectMake(44, 44, 40, 40), nullptr));
    CGContextEOFillPath(bitmap);
    return UIImage::imageWithCGImage(CGBitmapContextCreateImage(bitmap), 2);
}

const char* const kActivity[][2] = {
    {"Payment sent", "Coffee Roasters, 4.20 EUR"},
    {"New device signed in", "Pixel 8, Berlin"},
    {"Payment received", "From Grace H., 25.00 EUR"},
    {"Card frozen", "Card ending 4417"},
    {"Savings goal reached", "Summer trip, 800 EUR"},
    {"Payment sent", "City Transit, 2.90 EUR"},
    {"Statement ready", "March statement"},
    {"Payment sent", "Bookshop, 18.50 EUR"},
    {"Transfer scheduled", "Rent, on the 1st"},
    {"Cashback", "1.20 EUR credited"},
    {"Payment received", "From Alan T., 12.00 EUR"},
    {"Limit changed", "Daily limit 500 EUR"},
    {"Payment sent", "Grocer, 36.75 EUR"},
    {"Card unfrozen", "Card ending 4417"},
    {"Payment sent", "Cinema, 11.00 EUR"},
    {"Direct debit", "Phone plan, 15.00 EUR"},
};

}  // namespace

std::unique_ptr<DemoScreen> DemoScreen::make() {
    UIScreen::mainScreen()->setBounds(CGRectMake(0, 0, kWidth, kHeight));

    std::unique_ptr<DemoScreen> screen(new DemoScreen());
    screen->window_ = UIView::make<UIWindow>(UIScreen::mainScreen()->bounds());
    auto controller = std::make_shared<UIViewController>();
    const auto root = controller->view();
    root->setBackgroundColor(UIColor::colorWithWhite(0.96, 1));

    // Header: logo and greeting.
    auto logo = UIView::make<UIImageView>(CGRectMake(24, 60, 64, 64));
    logo->setImage(makeLogo());
    logo->layer()->setCornerRadius(16);
    logo->setClipsToBounds(true);
    root->addSubview(logo);
    addLabel(root, CGRectMake(104, 64, 270, 34), "Welcome back", UIFont::boldSystemFontOfSize(28));
    addLabel(root, CGRectMake(104, 98, 270, 22), "Sign in to continue", UIFont::systemFontOfSize(16),
             secondaryText());

    // The sign-in form.
    auto form = UIView::make(CGRectMake(16, 144, kWidth - 32, 252));
    makeCard(*form, 16);
    root->addSubview(form);
    addLabel(form, CGRectMake(16, 14, 200, 20), "Email", UIFont::boldSystemFontOfSize(14), secondaryText());
    screen->email_ = addField(form, CGRectMake(16, 38, kWidth - 64, 40), "ada@example.com");
    addLabel(form, CGRectMake(16, 90, 200, 20), "Password", UIFont::boldSystemFontOfSize(14),
             secondaryText());
    screen->password_ = addField(form, CGRectMake(16, 114, kWidth - 64, 40), "");
    screen->password_->setSecureTextEntry(true);
    auto signIn = UIView::make(CGRectMake(16, 176, kWidth - 64, 48));
    signIn->setBackgroundColor(accent());
    signIn->layer()->setCornerRadius(12);
    form->addSubview(signIn);
    screen->signIn_ = signIn;
    auto signInTitle = addLabel(signIn, CGRectMake(0, 0, kWidth - 64, 48), "Sign in",
                                UIFont::boldSystemFontOfSize(17), UIColor::whiteColor());
    signInTitle->setTextAlignment(NSTextAlignment::NSTextAlignmentCenter);

    // Recent activity: a list taller than the room it has.
    addLabel(root, CGRectMake(20, 412, 300, 24), "Recent activity", UIFont::boldSystemFontOfSize(20));
    screen->list_ = UIView::make<UIScrollView>(CGRectMake(16, 444, kWidth - 32, kHeight - 444 - 24));
    screen->list_->setClipsToBounds(true);
    root->addSubview(screen->list_);
    CGFloat y = 0;
    for (const auto& [title, detail] : kActivity) {
        auto row = UIView::make(CGRectMake(0, y, kWidth - 32, kRowHeight));
        makeCard(*row, 10);
        screen->list_->addSubview(row);
        addLabel(row, CGRectMake(14, 8, 300, 22), title, UIFont::systemFontOfSize(16));
        addLabel(row, CGRectMake(14, 30, 300, 18), detail, UIFont::systemFontOfSize(13), secondaryText());
        y += kRowHeight + kRowGap;
    }
    screen->list_->setContentSize(CGSizeMake(kWidth - 32, y - kRowGap));

    screen->window_->setRootViewController(controller);
    screen->window_->makeKeyAndVisible();
    return screen;
}

void DemoScreen::scrollList() {
    const CGFloat lastOffset =
        std::max<CGFloat>(0, list_->contentSize().height - CGRectGetHeight(list_->bounds()));
    const CGFloat current = list_->contentOffset().y;
    const CGFloat next =
        current >= lastOffset - 0.5 ? 0 : std::min(lastOffset, current + kRowHeight + kRowGap);
    list_->setContentOffset(CGPointMake(0, next));
}

}  // namespace demo
