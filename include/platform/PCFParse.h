// A node of a context-free grammar's parse tree over a token list.
#pragma once

#include <cstddef>
#include <string>

#include "platform/CountedObjPtr.h"

namespace Tarvik {

// A grammar rule; its first member is its name.
struct CFRule {
    std::string m_strName;  // the rule's name, e.g. "Host"
};

template <class Rule>
struct PCFParse {
    CountedObjPtr<std::string> m_pLabel;   // optional label given in the grammar; null when none
    CountedObjPtr<Rule> m_pRule;           // the rule that produced this node
    CountedObjPtr<PCFParse> m_pFirst;      // first child, or null
    CountedObjPtr<PCFParse> m_pSecond;     // second child, or null
    std::size_t m_uiFirstToken = 0;        // index of the node's first token
    std::size_t m_uiLastToken = 0;         // index of the node's last token (inclusive)
};

}  // namespace Tarvik
