#pragma once

// Tdata: a polymorphic value with a reference counted body, as typed
// attributes hold it (strings, matrices, meshes, ...).

#include <atomic>
#include <string>

#include "host/types.h"

class Tmetaclass;

class TdataLetter {
public:
    TdataLetter() = default;
    TdataLetter(const TdataLetter&) : fRefs(0) {}
    TdataLetter& operator=(const TdataLetter&) = delete;
    virtual ~TdataLetter() = default;

    virtual Tmetaclass* metaclass() const = 0;
    virtual TdataLetter* clone() const = 0;
    virtual float floatValue() const { return 0.0f; }
    virtual double doubleValue() const { return floatValue(); }
    virtual bool booleanValue() const { return doubleValue() != 0.0; }
    virtual double timeValue() const { return doubleValue(); }
    // The value as text in the scene language's syntax.
    virtual std::string text() const = 0;
    virtual bool equals(const TdataLetter& other) const = 0;

    void ref() const { fRefs.fetch_add(1, std::memory_order_relaxed); }
    void unref() const {
        if (fRefs.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

private:
    mutable std::atomic<int> fRefs{0};
};

class Tdata {
public:
    Tdata() = default;
    explicit Tdata(TdataLetter* letter) : fLetter(letter) {
        if (fLetter)
            fLetter->ref();
    }
    Tdata(const Tdata& other) : fLetter(other.fLetter) {
        if (fLetter)
            fLetter->ref();
    }
    Tdata(Tdata&& other) noexcept : fLetter(other.fLetter) { other.fLetter = nullptr; }
    Tdata& operator=(Tdata other) noexcept {
        std::swap(fLetter, other.fLetter);
        return *this;
    }
    ~Tdata() {
        if (fLetter)
            fLetter->unref();
    }

    bool isNULL() const { return fLetter == nullptr; }
    float floatValue() const { return fLetter ? fLetter->floatValue() : 0.0f; }
    double doubleValue() const { return fLetter ? fLetter->doubleValue() : 0.0; }
    bool booleanValue() const { return fLetter && fLetter->booleanValue(); }
    double timeValue() const { return fLetter ? fLetter->timeValue() : 0.0; }
    const TdataLetter* privateDataStar() const { return fLetter; }
    Tmetaclass* metaclass() const { return fLetter ? fLetter->metaclass() : nullptr; }
    std::string text() const { return fLetter ? fLetter->text() : std::string(); }

    friend bool operator==(const Tdata& a, const Tdata& b) {
        if (a.fLetter == b.fLetter)
            return true;
        if (!a.fLetter || !b.fLetter)
            return false;
        return a.fLetter->equals(*b.fLetter);
    }

    static const Tdata fsNULL;

private:
    TdataLetter* fLetter = nullptr;
};

// A string value.
class TdataString : public TdataLetter {
public:
    explicit TdataString(Tstring value = {}) : fValue(std::move(value)) {}

    static Tmetaclass* sTypeof();
    Tmetaclass* metaclass() const override { return sTypeof(); }
    TdataLetter* clone() const override { return new TdataString(fValue); }
    double doubleValue() const override;
    std::string text() const override;
    bool equals(const TdataLetter& other) const override;

    const Tstring& value() const { return fValue; }

private:
    Tstring fValue;
};

// Makes a Tdata holding a string.
Tdata OrvoMakeStringData(Tstring value);
// The string inside a Tdata, or null when it holds something else.
const Tstring* OrvoStringOf(const Tdata& data);
