#include "keycentre/lists.h"

#include "asnt/writer.h"
#include "issuing/times.h"
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

IdentObj EncodeUsersList(const std::list<IdentObj>& certificates, const std::list<IdentObj>& crls) {
    CNALSignData message;
    message.certificates = certificates;
    message.crls = crls;
    return message.WriteObject(nullptr);
}

}  // namespace keycentre
