// What signature checks of certificates gave while one chain is built.
//
// While a memo lives on a thread, the searches for issuers on that thread ask it instead of checking. A check costs far more than the
// search around it, and a search holds NALStorageLocker, so a memo first takes an unknown signature to be good and only notes it;
// whoever made the memo calls Settle after the search, with the lock given back, and searches again when a guess was wrong:
//
//     SignatureMemo memo;
//     do search(); while (!memo.Settle());
//
// What the searches then gave is what they would have given by checking at once. After two wrong guesses in a row checks are made at
// once, so a storage full of false issuers costs no more than three searches.
#pragma once

#include <map>
#include <utility>
#include <vector>

#include "nal/context.h"
#include "too/ident_obj.h"

namespace nal {

/// For the thread that made it; memos nest, and the inner one counts.
class SignatureMemo {
public:
    SignatureMemo();
    ~SignatureMemo();
    SignatureMemo(const SignatureMemo&) = delete;
    SignatureMemo& operator=(const SignatureMemo&) = delete;

    /// Whether the signature of `subject` holds under the key of `issuer`: as the calling thread's memo has it, or else checked now.
    static bool Holds(const CNALCertContext& subject, const CNALCertContext& issuer);

    /// Checks what was noted since the last call.
    /// @return whether every guess was right
    bool Settle();

    /// How many checks were made.
    unsigned CountOfChecks() const { return m_checks; }

private:
    using Pair = std::pair<CNALCertContext, IdentObj>;  // a certificate and the DER of an issuer's public key

    struct Answer {
        bool isKnown = false;
        bool holds = true;
    };
    using Answers = std::map<Pair, Answer>;

    bool Ask(const CNALCertContext& subject, const CNALCertContext& issuer);
    void Check(Answers::value_type& entry, const CNALCertContext& issuer);

    SignatureMemo* const m_outer;
    Answers m_answers;
    std::vector<std::pair<Answers::value_type*, CNALCertContext>> m_guessed;  // with an issuer that has the key
    unsigned m_wrongGuesses = 0;                                              // in a row
    unsigned m_checks = 0;
};

}  // namespace nal
