#include "platform/uikit/detail/GestureEnvironment.h"

#include <algorithm>
#include <array>

#include "platform/uikit/UIView.h"
#include "platform/uikit/UIWindow.h"

namespace platform::detail {

namespace {

using State = UIGestureRecognizerState;

bool isLive(const UITouch& touch) {
    return touch.phase() != UITouchPhase::UITouchPhaseEnded &&
           touch.phase() != UITouchPhase::UITouchPhaseCancelled;
}

bool isTerminal(State s) {
    return s == State::UIGestureRecognizerStateEnded || s == State::UIGestureRecognizerStateCancelled ||
           s == State::UIGestureRecognizerStateFailed;
}

bool hasRecognized(State s) {
    return s == State::UIGestureRecognizerStateBegan || s == State::UIGestureRecognizerStateChanged ||
           s == State::UIGestureRecognizerStateEnded;
}

bool takesTouches(const UIGestureRecognizer& r) {
    return r.isEnabled() && !isTerminal(r.state());
}

// Index of a phase among the four a callback exists for; -1 for stationary touches.
int callbackIndex(UITouchPhase phase) {
    switch (phase) {
        case UITouchPhase::UITouchPhaseBegan:
            return 0;
        case UITouchPhase::UITouchPhaseMoved:
            return 1;
        case UITouchPhase::UITouchPhaseEnded:
            return 2;
        case UITouchPhase::UITouchPhaseCancelled:
            return 3;
        case UITouchPhase::UITouchPhaseStationary:
            break;
    }
    return -1;
}

template <class Receiver>
void callTouches(Receiver& receiver, int index, const UITouchSet& touches, UIEvent* event) {
    switch (index) {
        case 0:
            receiver.touchesBegan(touches, event);
            break;
        case 1:
            receiver.touchesMoved(touches, event);
            break;
        case 2:
            receiver.touchesEnded(touches, event);
            break;
        default:
            receiver.touchesCancelled(touches, event);
            break;
    }
}

// The selectors of the delegate's optional methods, interned once.
struct DelegateSelectors {
    SEL shouldBegin = sel_getUid(UIGestureRecognizerDelegate::shouldBegin);
    SEL shouldReceiveTouch = sel_getUid(UIGestureRecognizerDelegate::shouldReceiveTouch);
    SEL shouldRecognizeSimultaneously =
        sel_getUid(UIGestureRecognizerDelegate::shouldRecognizeSimultaneously);
    SEL shouldRequireFailure = sel_getUid(UIGestureRecognizerDelegate::shouldRequireFailure);
    SEL shouldBeRequiredToFail = sel_getUid(UIGestureRecognizerDelegate::shouldBeRequiredToFail);
};

const DelegateSelectors& selectors() {
    static const DelegateSelectors instance;
    return instance;
}

// The delegate's answer, looked up by selector at each question so that a replaced implementation
// answers; nullopt when there is no delegate or it doesn't implement the method.
template <class... A>
std::optional<bool> askDelegate(const UIGestureRecognizer& recognizer, SEL selector, A... args) {
    const id delegate = recognizer.delegate();
    if (!delegate) return std::nullopt;
    const Method method = class_getInstanceMethod(object_getClass(delegate.get()), selector);
    if (method == nullptr) return std::nullopt;
    return imp_call<BOOL, A...>(method_getImplementation(method), delegate.get(), selector, args...);
}

bool contains(const std::vector<std::shared_ptr<UITouch>>& touches, const UITouch* touch) {
    return std::any_of(touches.begin(), touches.end(), [touch](const auto& t) { return t.get() == touch; });
}

// Touches for views, grouped by view in the order the views first appear, each view's in callback
// order.
class ViewBatch {
public:
    void add(const std::shared_ptr<UIView>& view, int index, const std::shared_ptr<UITouch>& touch) {
        auto it =
            std::find_if(entries_.begin(), entries_.end(), [&](const auto& e) { return e.view == view; });
        if (it == entries_.end()) it = entries_.insert(entries_.end(), Entry{view, {}});
        it->sets[static_cast<std::size_t>(index)].push_back(touch);
    }
    void deliver(UIEvent* event) {
        for (auto& entry : entries_) {
            for (int i = 0; i < 4; ++i) {
                const auto& set = entry.sets[static_cast<std::size_t>(i)];
                if (!set.empty()) callTouches(*entry.view, i, set, event);
            }
        }
        entries_.clear();
    }

private:
    struct Entry {
        std::shared_ptr<UIView> view;
        std::array<UITouchSet, 4> sets;
    };
    std::vector<Entry> entries_;
};

}  // namespace

GestureEnvironment& GestureEnvironment::shared() {
    // Never destroyed: recognizers may report from callbacks that run while the process exits.
    static GestureEnvironment* const instance = new GestureEnvironment();
    return *instance;
}

void GestureEnvironment::dispatch(UIWindow& window, const std::shared_ptr<UIEvent>& event) {
    ++dispatching_;
    const UITouchSet& touches = event->allTouches();
    for (const auto& touch : touches) {
        if (touch && touch->phase_ == UITouchPhase::UITouchPhaseBegan && !touch->attached_)
            attach(window, touch, event.get());
    }
    deliverToRecognizers(touches, event.get());
    deliverToViews(event);
    drain();
    --dispatching_;
    if (dispatching_ == 0) settle();
}

void GestureEnvironment::attach(UIWindow& window, const std::shared_ptr<UITouch>& touch, UIEvent* event) {
    touch->attached_ = true;
    touch->window_ = std::static_pointer_cast<UIWindow>(window.shared_from_this());
    const auto hit = window.hitTest(touch->location_, event);
    touch->view_ = hit;
    if (!hit) return;
    for (auto view = hit; view; view = view->superview()) {
        for (const auto& recognizer : view->gestureRecognizers()) {
            if (!recognizer->isEnabled()) continue;
            if (askDelegate<UIGestureRecognizer*, UITouch*>(*recognizer, selectors().shouldReceiveTouch,
                                                            recognizer.get(), touch.get()) == false)
                continue;
            touch->recognizers_.push_back(recognizer);
            recognizer->touches_.push_back(touch);
            join(recognizer);
        }
    }
}

void GestureEnvironment::join(const Recognizer& recognizer) {
    if (recognizer->inGesture_) return;
    recognizer->inGesture_ = true;
    active_.push_back(recognizer);
}

void GestureEnvironment::deliverToRecognizers(const UITouchSet& touches, UIEvent* event) {
    std::vector<Recognizer> order;
    for (const auto& touch : touches) {
        for (const auto& weak : touch->recognizers_) {
            auto recognizer = weak.lock();
            if (recognizer && std::find(order.begin(), order.end(), recognizer) == order.end())
                order.push_back(std::move(recognizer));
        }
    }
    for (const auto& recognizer : order) {
        std::array<UITouchSet, 4> sets;
        for (const auto& touch : touches) {
            const int index = callbackIndex(touch->phase_);
            if (index >= 0 && contains(recognizer->touches_, touch.get()))
                sets[static_cast<std::size_t>(index)].push_back(touch);
        }
        for (int i = 0; i < 4; ++i) {
            const auto& set = sets[static_cast<std::size_t>(i)];
            if (set.empty() || !takesTouches(*recognizer)) continue;
            callTouches(*recognizer, i, set, event);
            drain();
        }
    }
}

bool GestureEnvironment::holdsTouch(const UITouch& touch, bool began) {
    for (const auto& weak : touch.recognizers_) {
        const auto r = weak.lock();
        if (!r || r->state_ != State::UIGestureRecognizerStatePossible) continue;
        if (!(began ? r->delaysTouchesBegan_ : r->delaysTouchesEnded_)) continue;
        if (contains(r->touches_, &touch)) return true;
    }
    return false;
}

void GestureEnvironment::deliverToViews(const std::shared_ptr<UIEvent>& event) {
    using Delivery = UITouch::ViewDelivery;
    ViewBatch batch;
    for (const auto& touch : event->allTouches()) {
        const auto view = touch->view_.lock();
        if (!view) continue;
        const int index = callbackIndex(touch->phase_);
        switch (touch->phase_) {
            case UITouchPhase::UITouchPhaseBegan:
                if (touch->viewDelivery_ != Delivery::none) break;
                if (holdsTouch(*touch, true)) {
                    touch->viewDelivery_ = Delivery::heldBegan;
                    held_.emplace_back(touch, event);
                } else {
                    touch->viewDelivery_ = Delivery::delivered;
                    batch.add(view, index, touch);
                }
                break;
            case UITouchPhase::UITouchPhaseMoved:
                if (touch->viewDelivery_ == Delivery::delivered) batch.add(view, index, touch);
                break;
            case UITouchPhase::UITouchPhaseEnded:
            case UITouchPhase::UITouchPhaseCancelled:
                if (touch->viewDelivery_ == Delivery::heldBegan) {
                    touch->heldEnd_ = true;
                    touch->heldPhase_ = touch->phase_;
                } else if (touch->viewDelivery_ == Delivery::delivered) {
                    if (touch->phase_ == UITouchPhase::UITouchPhaseEnded && holdsTouch(*touch, false)) {
                        touch->viewDelivery_ = Delivery::heldEnded;
                        held_.emplace_back(touch, event);
                    } else {
                        touch->viewDelivery_ = Delivery::done;
                        batch.add(view, index, touch);
                    }
                }
                break;
            case UITouchPhase::UITouchPhaseStationary:
                break;
        }
    }
    batch.deliver(event.get());
}

void GestureEnvironment::requestState(UIGestureRecognizer& recognizer, UIGestureRecognizerState state) {
    auto shared = std::static_pointer_cast<UIGestureRecognizer>(recognizer.weak_from_this().lock());
    if (!shared) {
        // Not owned by anyone: nothing observes it, and there is no gesture to take part in.
        recognizer.state_ = state;
        return;
    }
    requests_.emplace_back(std::move(shared), state);
    // Inside a delivery or an action: taken up when the callback under way has returned.
    if (dispatching_ > 0 || draining_) return;
    drain();
    settle();
}

void GestureEnvironment::drain() {
    if (draining_) return;
    draining_ = true;
    while (!requests_.empty()) {
        auto [recognizer, state] = std::move(requests_.front());
        requests_.pop_front();
        apply(recognizer, state);
    }
    draining_ = false;
}

void GestureEnvironment::apply(const Recognizer& r, State requested) {
    if (r->pending_) {
        // Waiting for others to fail: it keeps the recognition it asked for, or gives it up.
        if (requested == State::UIGestureRecognizerStateEnded) {
            r->pending_ = State::UIGestureRecognizerStateEnded;
        } else if (requested == State::UIGestureRecognizerStateFailed ||
                   requested == State::UIGestureRecognizerStateCancelled) {
            r->pending_.reset();
            fail(r);
        }
        return;
    }
    switch (r->state_) {
        case State::UIGestureRecognizerStatePossible:
            if (requested == State::UIGestureRecognizerStateBegan ||
                requested == State::UIGestureRecognizerStateEnded) {
                tryRecognize(r, requested);
            } else if (requested == State::UIGestureRecognizerStateFailed) {
                fail(r);
            }
            break;
        case State::UIGestureRecognizerStateBegan:
        case State::UIGestureRecognizerStateChanged:
            if (requested == State::UIGestureRecognizerStateChanged ||
                requested == State::UIGestureRecognizerStateEnded ||
                requested == State::UIGestureRecognizerStateCancelled) {
                r->state_ = requested;
                sendActions(*r);
                if (requested != State::UIGestureRecognizerStateChanged) {
                    resolvePending();
                    releaseHeld();
                }
            }
            break;
        default:
            break;  // ended, cancelled or failed: nothing moves it but the reset
    }
}

void GestureEnvironment::tryRecognize(const Recognizer& r, State target) {
    r->pending_.reset();
    if (askDelegate<UIGestureRecognizer*>(*r, selectors().shouldBegin, r.get()) == false) {
        fail(r);
        return;
    }
    const std::vector<Recognizer> others = active_;
    // A recognizer that already has the touches keeps them, unless the two may recognize together.
    for (const auto& other : others) {
        if (other == r || !sharesTouch(*r, *other)) continue;
        const State s = other->state_;
        if ((s == State::UIGestureRecognizerStateBegan || s == State::UIGestureRecognizerStateChanged) &&
            !simultaneous(*r, *other) && other->canPreventGestureRecognizer(r.get()) &&
            r->canBePreventedByGestureRecognizer(other.get())) {
            fail(r);
            return;
        }
    }
    bool waiting = false;
    for (const auto& other : others) {
        if (other == r || !requiresFailure(*r, *other)) continue;
        if (other->state_ == State::UIGestureRecognizerStatePossible) {
            waiting = true;
        } else if (hasRecognized(other->state_)) {
            fail(r);
            return;
        }
    }
    if (waiting) {
        r->pending_ = target;
        return;
    }
    r->state_ = target;
    for (const auto& other : others) {
        if (other == r || other->state_ != State::UIGestureRecognizerStatePossible ||
            !sharesTouch(*r, *other))
            continue;
        if (!simultaneous(*r, *other) && r->canPreventGestureRecognizer(other.get()) &&
            other->canBePreventedByGestureRecognizer(r.get())) {
            other->pending_.reset();
            other->state_ = State::UIGestureRecognizerStateFailed;
        }
    }
    if (r->cancelsTouchesInView_) cancelViewTouches(*r);
    settleHeldOnRecognition(*r);
    sendActions(*r);
    resolvePending();
    releaseHeld();
}

void GestureEnvironment::fail(const Recognizer& r) {
    r->pending_.reset();
    r->state_ = State::UIGestureRecognizerStateFailed;
    resolvePending();
    releaseHeld();
}

void GestureEnvironment::resolvePending() {
    if (resolving_) {
        resolveAgain_ = true;
        return;
    }
    resolving_ = true;
    do {
        resolveAgain_ = false;
        const std::vector<Recognizer> others = active_;
        for (const auto& r : others) {
            if (r->pending_) tryRecognize(r, *r->pending_);
        }
    } while (resolveAgain_);
    resolving_ = false;
}

bool GestureEnvironment::requiresFailure(UIGestureRecognizer& waiting, UIGestureRecognizer& other) const {
    for (const auto& weak : waiting.requiredToFail_) {
        if (weak.lock().get() == &other) return true;
    }
    // Asked of every recognizer in the gesture, touches shared or not: a requirement may join
    // recognizers across view hierarchies.
    if (waiting.shouldRequireFailureOfGestureRecognizer(&other)) return true;
    if (other.shouldBeRequiredToFailByGestureRecognizer(&waiting)) return true;
    if (askDelegate<UIGestureRecognizer*, UIGestureRecognizer*>(waiting, selectors().shouldRequireFailure,
                                                                &waiting, &other) == true)
        return true;
    return askDelegate<UIGestureRecognizer*, UIGestureRecognizer*>(other, selectors().shouldBeRequiredToFail,
                                                                   &other, &waiting) == true;
}

bool GestureEnvironment::simultaneous(UIGestureRecognizer& a, UIGestureRecognizer& b) const {
    const SEL sel = selectors().shouldRecognizeSimultaneously;
    return askDelegate<UIGestureRecognizer*, UIGestureRecognizer*>(a, sel, &a, &b) == true ||
           askDelegate<UIGestureRecognizer*, UIGestureRecognizer*>(b, sel, &b, &a) == true;
}

bool GestureEnvironment::sharesTouch(const UIGestureRecognizer& a, const UIGestureRecognizer& b) {
    for (const auto& touch : a.touches_) {
        if (contains(b.touches_, touch.get())) return true;
    }
    return false;
}

void GestureEnvironment::cancelViewTouches(const UIGestureRecognizer& recognizer) {
    using Delivery = UITouch::ViewDelivery;
    ViewBatch batch;
    for (const auto& touch : recognizer.touches_) {
        switch (touch->viewDelivery_) {
            case Delivery::delivered:
            case Delivery::heldEnded:
                if (const auto view = touch->view_.lock()) batch.add(view, 3, touch);
                touch->viewDelivery_ = Delivery::done;
                break;
            case Delivery::none:
            case Delivery::heldBegan:
                // The view never saw it and now never will.
                touch->viewDelivery_ = Delivery::done;
                break;
            case Delivery::done:
                break;
        }
    }
    std::erase_if(held_, [](const auto& entry) { return entry.first->viewDelivery_ == Delivery::done; });
    batch.deliver(nullptr);
}

void GestureEnvironment::settleHeldOnRecognition(const UIGestureRecognizer& recognizer) {
    using Delivery = UITouch::ViewDelivery;
    ViewBatch batch;
    for (const auto& touch : recognizer.touches_) {
        if (recognizer.delaysTouchesBegan_ && touch->viewDelivery_ == Delivery::heldBegan) {
            touch->viewDelivery_ = Delivery::done;  // discarded: the view never sees the touch
        } else if (recognizer.delaysTouchesEnded_ && touch->viewDelivery_ == Delivery::heldEnded) {
            touch->viewDelivery_ = Delivery::done;
            if (const auto view = touch->view_.lock()) batch.add(view, 3, touch);
        }
    }
    std::erase_if(held_, [](const auto& entry) { return entry.first->viewDelivery_ == Delivery::done; });
    batch.deliver(nullptr);
}

void GestureEnvironment::releaseHeld() {
    using Delivery = UITouch::ViewDelivery;
    // One touch at a time, each with the event it was held from.
    for (std::size_t i = 0; i < held_.size(); ++i) {
        const auto touch = held_[i].first;
        const auto event = held_[i].second;
        const auto view = touch->view_.lock();
        if (touch->viewDelivery_ == Delivery::heldBegan && !holdsTouch(*touch, true)) {
            touch->viewDelivery_ = Delivery::delivered;
            if (view) view->touchesBegan({touch}, event.get());
            if (touch->heldEnd_) {
                if (touch->heldPhase_ == UITouchPhase::UITouchPhaseEnded && holdsTouch(*touch, false)) {
                    touch->viewDelivery_ = Delivery::heldEnded;
                } else {
                    touch->viewDelivery_ = Delivery::done;
                    if (view) callTouches(*view, callbackIndex(touch->heldPhase_), {touch}, event.get());
                }
            }
        } else if (touch->viewDelivery_ == Delivery::heldEnded && !holdsTouch(*touch, false)) {
            touch->viewDelivery_ = Delivery::done;
            if (view) view->touchesEnded({touch}, event.get());
        }
    }
    std::erase_if(held_, [](const auto& entry) {
        const auto d = entry.first->viewDelivery_;
        return d != Delivery::heldBegan && d != Delivery::heldEnded;
    });
}

void GestureEnvironment::settle() {
    const auto touchesGone = [](const Recognizer& r) {
        return std::none_of(r->touches_.begin(), r->touches_.end(), [](const auto& t) { return isLive(*t); });
    };
    // A recognizer still Possible when its touches have gone, and waiting for no more, fails; that
    // may release recognizers that wait for it, so the pass runs until nothing changes.
    for (bool failed = true; failed;) {
        failed = false;
        const std::vector<Recognizer> others = active_;
        for (const auto& r : others) {
            if (r->pending_ || r->state_ != State::UIGestureRecognizerStatePossible || r->awaitsFurtherTouches() ||
                !touchesGone(r))
                continue;
            fail(r);
            failed = true;
        }
    }
    const std::vector<Recognizer> others = active_;
    for (const auto& r : others) {
        if (!r->pending_ && isTerminal(r->state_) && touchesGone(r)) resetRecognizer(r);
    }
    releaseHeld();
}

void GestureEnvironment::resetRecognizer(const Recognizer& r) {
    r->state_ = State::UIGestureRecognizerStatePossible;
    r->pending_.reset();
    r->touches_.clear();
    r->inGesture_ = false;
    std::erase(active_, r);
    r->reset();
}

void GestureEnvironment::sendActions(UIGestureRecognizer& recognizer) {
    const auto targets = recognizer.targets_;
    for (const auto& target : targets) {
        if (const auto object = target.object.lock())
            objc_msgSend<void, UIGestureRecognizer*>(object.get(), target.action, &recognizer);
    }
}

void GestureEnvironment::ignoreTouch(UIGestureRecognizer& recognizer, const UITouch& touch) {
    std::erase_if(recognizer.touches_, [&](const auto& t) { return t.get() == &touch; });
    releaseHeld();
}

void GestureEnvironment::recognizerRemoved(UIGestureRecognizer& recognizer) {
    if (!recognizer.inGesture_) return;
    const auto shared = std::static_pointer_cast<UIGestureRecognizer>(recognizer.weak_from_this().lock());
    if (!shared) return;
    for (const auto& touch : shared->touches_) {
        std::erase_if(touch->recognizers_, [&](const auto& weak) { return weak.lock() == shared; });
    }
    // It leaves the gesture as one that ended without recognizing, releasing any that wait for it.
    const State s = shared->state_;
    if (s == State::UIGestureRecognizerStateBegan || s == State::UIGestureRecognizerStateChanged) {
        shared->state_ = State::UIGestureRecognizerStateCancelled;
        sendActions(*shared);
        resolvePending();
    } else if (s == State::UIGestureRecognizerStatePossible) {
        fail(shared);
    }
    resetRecognizer(shared);
    releaseHeld();
}

void GestureEnvironment::recognizerDisabled(UIGestureRecognizer& recognizer) {
    if (!recognizer.inGesture_) return;
    const State s = recognizer.state_;
    if (s == State::UIGestureRecognizerStateBegan || s == State::UIGestureRecognizerStateChanged) {
        requestState(recognizer, State::UIGestureRecognizerStateCancelled);
    } else if (s == State::UIGestureRecognizerStatePossible) {
        recognizer.pending_.reset();
        requestState(recognizer, State::UIGestureRecognizerStateFailed);
    }
}

}  // namespace platform::detail
