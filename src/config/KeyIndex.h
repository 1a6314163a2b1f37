// Names with a number in them: keys such as "open3" or "BusType2" made from a template that ends in an underscore, and
// section names such as "ComPorts12". Called by the reader, the section matching and the action sections. Any thread,
// no lock.
#pragma once

#include <cstddef>

#include "keys/ConfigurationKeys.h"
#include "platform/win32.h"

// The section without a number; callers walk 1 to 99 and try this one last.
constexpr LONG NoSectionNumber = 100;

// Rewrites the last character of the key in `text`, where its template has the underscore.
// sizeWithTerminator: sizeof of the template, so that the position is found again in a buffer already rewritten.
// index: a plain number 1 to 9 or a character '1' to '9' puts the digit there; 10 and the character '0' cut the key off
// there. Any other index cuts it off as well: an underscore never reaches a key name.
void SetKeyIndex(char* text, size_t sizeWithTerminator, DWORD index);

// The same for a buffer that holds exactly one template.
template<size_t N>
void SetKeyIndex(char (&text)[N], DWORD index) {
    SetKeyIndex(text, N, index);
}

// The name of a key of one index, made from its template.
class IndexedKey {
public:
    IndexedKey(KeyTemplate keyTemplate, DWORD index) : m_size(keyTemplate.SizeWithTerminator()) {
        for (size_t i = 0; i < m_size; ++i) {
            m_text[i] = keyTemplate.Text()[i];
        }
        SetIndex(index);
    }
    // index: as for SetKeyIndex.
    void SetIndex(DWORD index) { SetKeyIndex(m_text, m_size, index); }
    const char* Text() const { return m_text; }
    operator KeyName() const { return {m_text, 0}; } // valid as long as this object

private:
    char m_text[LongestKeyTemplate + 1];
    size_t m_size;
};

// Returns: the decimal text of a number up to 99 for log lines and messages, the empty text for any number above it.
// Part of a constant table: never freed, valid for the life of the process.
const char* SectionNumberSuffix(LONG number);
