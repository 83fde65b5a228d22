#pragma once
// A screen of the program made of one form: loaded, then shown unless its opening ended the program.
#include "app/startup.h"

#include <memory>

namespace pel
{

template <class F> class FormScreen final : public Screen
{
public:
    void load() override { form_.load(); }
    void show() override { form_.show(); }
    bool alive() const override { return !form_.ended(); }

    static std::unique_ptr<Screen> make() { return std::make_unique<FormScreen<F>>(); }

private:
    F form_;
};

} // namespace pel
