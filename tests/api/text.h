#pragma once

#include <cstdlib>
#include <cstring>
#include <string>

#include "libvnk.h"

/// A text variable of a caller, as the interface wants it.
class Text {
 public:
    Text() = default;
    explicit Text(const std::string& text) : mpText(strdup(text.c_str())) {}
    ~Text() { vnkDisposeString(&mpText); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    char** address() { return &mpText; }
    bool isNull() const { return mpText == nullptr; }
    std::string str() const { return mpText ? mpText : ""; }
    /// Takes over a text that an export returned.
    static std::string take(char* pText) {
        Text cText;
        cText.mpText = pText;
        return cText.str();
    }

 private:
    char* mpText = nullptr;
};

/// Brings the interface down for a scope; the count of the load is restored behind it.
class InterfaceDown {
 public:
    InterfaceDown() { vnkShutdownAPI(); }
    ~InterfaceDown() { vnkInitAPI(); }
    InterfaceDown(const InterfaceDown&) = delete;
    InterfaceDown& operator=(const InterfaceDown&) = delete;
};
