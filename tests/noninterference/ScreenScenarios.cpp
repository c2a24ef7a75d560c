// The screen scenario: a window of every kind of view capture draws, written down property by
// property (every one of the view and its layer that drawing could touch) before a screen capture
// and after one has certainly reached the ingest endpoint.
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/coregraphics/CGContext.h"
#include "platform/coregraphics/CGColor.h"
#include "platform/uikit/UIImageView.h"
#include "platform/uikit/UILabel.h"
#include "platform/uikit/UITextField.h"
#include "platform/uikit/UIViewController.h"
#include "platform/uikit/UIWindow.h"
#include "tests/noninterference/Scenario.h"

using namespace platform;

namespace qlm_test {
namespace {

// Numbers objects in the order they are first seen, so a dump shows one replaced by another without
// depending on addresses.
class Identities {
public:
    std::string of(const void* object) {
        if (!object) return "none";
        return "#" + std::to_string(numbers_.try_emplace(object, numbers_.size() + 1).first->second);
    }

private:
    std::map<const void*, std::size_t> numbers_;
};

std::string format(const char* pattern, auto... values) {
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, pattern, values...);
    return buffer;
}

std::string rect(CGRect r) {
    return format("(%g %g %g %g)", r.origin.x, r.origin.y, r.size.width, r.size.height);
}

std::string color(Identities& ids, const CGColorRef& c) {
    if (!c) return "none";
    std::string text = ids.of(c.get()) + "[";
    const CGFloat* components = CGColorGetComponents(c);
    for (std::size_t i = 0; i < CGColorGetNumberOfComponents(c); ++i) text += format(i ? " %g" : "%g", components[i]);
    return text + "]";
}

void dumpLayer(Identities& ids, const CALayer& layer, const std::string& indent, std::vector<std::string>& out) {
    const auto t = layer.affineTransform();
    out.push_back(indent + "layer " + ids.of(&layer) + " bounds " + rect(layer.bounds()) +
                  format(" position %g,%g anchor %g,%g z %g", layer.position().x, layer.position().y,
                         layer.anchorPoint().x, layer.anchorPoint().y, layer.zPosition()) +
                  format(" transform %g %g %g %g %g %g", t.a, t.b, t.c, t.d, t.tx, t.ty) +
                  format(" hidden %d opacity %g masks %d", layer.isHidden(), layer.opacity(), layer.masksToBounds()));
    out.push_back(indent + "  background " + color(ids, layer.backgroundColor()) + " border " +
                  color(ids, layer.borderColor()) +
                  format(" width %g radius %g", layer.borderWidth(), layer.cornerRadius()) + " contents " +
                  ids.of(layer.contents().get()) + " gravity " + layer.contentsGravity() + " centre " +
                  rect(layer.contentsCenter()) + format(" scale %g", layer.contentsScale()) + " mask " +
                  ids.of(layer.mask().get()) + " delegate " + ids.of(layer.delegate().get()));
    for (const auto& sublayer : layer.sublayers()) dumpLayer(ids, *sublayer, indent + "  ", out);
}

void dumpView(Identities& ids, const UIView& view, const std::string& indent, std::vector<std::string>& out) {
    std::string line = indent + class_getName(view.objcClass()) + " " + ids.of(&view) +
                       " background " + ids.of(view.backgroundColor().get()) +
                       format(" tag %ld interaction %d recognizers %zu", view.tag(),
                              view.isUserInteractionEnabled(), view.gestureRecognizers().size()) +
                       " identifier " + view.accessibilityIdentifier().value_or("none");
    if (const auto* label = dynamic_cast<const UILabel*>(&view)) {
        line += " text " + label->text().value_or("none") + " font " + ids.of(label->font().get()) +
                " colour " + ids.of(label->textColor().get()) +
                format(" alignment %d", static_cast<int>(label->textAlignment()));
    }
    if (const auto* field = dynamic_cast<const UITextField*>(&view)) {
        line += " text " + field->text() + " placeholder " + field->placeholder().value_or("none") + " font " +
                ids.of(field->font().get()) + format(" secure %d", field->isSecureTextEntry());
    }
    if (const auto* image = dynamic_cast<const UIImageView*>(&view)) {
        line += " image " + ids.of(image->image().get()) +
                format(" mode %d", static_cast<int>(image->contentMode()));
    }
    out.push_back(line);
    dumpLayer(ids, *view.layer(), indent + "  ", out);
    for (const auto& subview : view.subviews()) dumpView(ids, *subview, indent + "  ", out);
}

std::shared_ptr<UIImage> checkerImage() {
    const auto bitmap = CGBitmapContextCreate(nullptr, 8, 8, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                              kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little);
    CGContextSetFillColorWithColor(bitmap, CGColorCreateGenericRGB(1, 0, 0, 1));
    CGContextFillRect(bitmap, CGRectMake(0, 0, 4, 4));
    return UIImage::imageWithCGImage(CGBitmapContextCreateImage(bitmap), 2);
}

void screenLeftAsItWas(ScenarioRun& run) {
    const auto window = UIView::make<UIWindow>(CGRectMake(0, 0, 400, 800));
    const auto controller = std::make_shared<UIViewController>();
    window->setRootViewController(controller);
    const auto root = controller->view();
    root->setBackgroundColor(UIColor::whiteColor());

    const auto card = UIView::make(CGRectMake(20, 40, 360, 300));
    card->setBackgroundColor(UIColor::lightGrayColor());
    card->setClipsToBounds(true);
    card->layer()->setCornerRadius(12);
    card->layer()->setBorderWidth(2);
    card->layer()->setBorderColor(CGColorCreateGenericGray(0.2, 1));
    card->setAlpha(0.9);
    root->addSubview(card);

    const auto label = UIView::make<UILabel>(CGRectMake(10, 10, 300, 30));
    label->setText("Balance");
    label->setFont(UIFont::boldSystemFontOfSize(18));
    card->addSubview(label);
    const auto secret = UIView::make<UITextField>(CGRectMake(10, 50, 300, 30));
    secret->setText("hunter2");
    secret->setSecureTextEntry(true);
    secret->setAccessibilityIdentifier("password");
    card->addSubview(secret);
    const auto field = UIView::make<UITextField>(CGRectMake(10, 90, 300, 30));
    field->setPlaceholder("Name");
    card->addSubview(field);
    const auto image = UIView::make<UIImageView>(CGRectMake(10, 130, 64, 64));
    image->setImage(checkerImage());
    card->addSubview(image);
    const auto turned = UIView::make(CGRectMake(100, 200, 80, 40));
    turned->setTransform(CGAffineTransformMakeRotation(0.3));
    turned->setBackgroundColor(UIColor::redColor());
    card->addSubview(turned);
    const auto hidden = UIView::make<UILabel>(CGRectMake(10, 250, 300, 30));
    hidden->setText("hidden");
    hidden->setHidden(true);
    card->addSubview(hidden);
    const auto mask = std::make_shared<CALayer>();
    mask->setFrame(CGRectMake(0, 0, 40, 40));
    turned->layer()->setMask(mask);
    const auto drawnLayer = std::make_shared<CALayer>();
    drawnLayer->setFrame(CGRectMake(200, 10, 50, 50));
    drawnLayer->setBackgroundColor(CGColorCreateGenericRGB(0, 0, 1, 0.5));
    card->layer()->addSublayer(drawnLayer);
    window->makeKeyAndVisible();

    Identities ids;
    std::vector<std::string> before;
    dumpView(ids, *root, "", before);
    run.awaitCapture([](const std::vector<qm::Event>& events) {
        for (const auto& event : events)
            if (event.type() == "qm.ios.PDFViewCapture") return true;
        return false;
    });
    std::vector<std::string> after;
    dumpView(ids, *root, "", after);
    for (const auto& line : before) run.transcript().add("before " + line);
    for (const auto& line : after) run.transcript().add("after  " + line);
    run.expectCapture([](const std::vector<qm::Event>& events) {
        for (const auto& event : events)
            if (event.type() == "qm.ios.PDFViewCapture") return true;
        return false;
    });
}

const bool kRegistered = addScenarios({{"screen_left_as_it_was", screenLeftAsItWas, ""}});

}  // namespace
}  // namespace qlm_test
