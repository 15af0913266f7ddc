#include "keycentre/lists.h"

#include "asnt/writer.h"
#include "keycentre/issuing/times.h"
#include "nal/sign.h"
#include "nal/signed_data.h"

namespace keycentre {

IdentObj EncodeTrustList(const TrustList& list) {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Unsigned(list.number);
        writer.GeneralizedTime(list.thisUpdate.value_or(Now()));
        for (const auto* part : {&list.certificates, &list.crls}) {
            writer.Sequence([&] {
                for (const IdentObj& element : *part)
                    writer.Raw(asnt::View(element));
            });
        }
    });
    return writer.Finish();
}

IdentObj SignTrustList(const TrustList& list, const Issuer& signer) {
    CNALSignData message;
    message.eContent = EncodeTrustList(list);
    CNALProvider provider = signer.GetKeyPair().GetOpenProvider();
    NALSignTrustList(provider, signer.GetKeyPair().GetKey(), signer.GetContext(), message);
    return message.WriteObject(nullptr);
}

IdentObj EncodeUsersList(const std::list<IdentObj>& certificates, const std::list<IdentObj>& crls) {
    CNALSignData message;
    message.certificates = certificates;
    message.crls = crls;
    return message.WriteObject(nullptr);
}

}  // namespace keycentre
