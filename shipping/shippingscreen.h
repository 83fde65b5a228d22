#pragma once
// A shipping screen as the start-up shows it: loaded, then shown.
#include "app/startup.h"

#include <memory>

namespace pel {

template <class F> class ShippingScreen final : public Screen
{
public:
    void load() override { form_.load(); }
    void show() override { form_.show(); }

private:
    F form_;
};

template <class F> std::unique_ptr<Screen> makeShippingScreen()
{
    return std::make_unique<ShippingScreen<F>>();
}

} // namespace pel
