#pragma once
// A screen of the program made of one form: loaded, then shown unless its opening ended the program (a form that
// can end at its opening says so with ended()).
#include "app/startup.h"

#include <memory>

namespace pel {

template <class F> class FormScreen final : public Screen {
public:
    void load() override { form_.load(); }
    void show() override { form_.show(); }
    bool alive() const override
    {
        if constexpr (requires(const F& f) { f.ended(); })
            return !form_.ended();
        else
            return true;
    }

    static std::unique_ptr<Screen> make() { return std::make_unique<FormScreen<F>>(); }

private:
    F form_;
};

} // namespace pel
