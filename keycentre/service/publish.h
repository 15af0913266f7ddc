// What a key centre publishes for the hosts of its network, in `d_station` of the transport folder:
//
//   <id>_trl.p7s   the trust list: the centre's authorities with their CRLs, signed
//   <id>_usr.p7b   the users' list: every valid certificate of a user
//   <id>_root.crl  the root's CRL, for the hosts' main storages
#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "keycentre/service/centre.h"
#include "keycentre/service/transport_folder.h"

namespace keycentre {

struct Published {
    std::list<std::string> files;
    std::uint64_t number = 0;  ///< of the trust list
    std::size_t users = 0;     ///< certificates in the users' list
};

/// Writes the three, each whole or not at all. Makes new CRLs first when they are due. The keys are open.
/// @throws XTOOStatus(12) when the users' list would be larger than its readers take
Published Publish(Centre& centre, const TransportFolder& folder);

/// The identifier of a network in file names: four hexadecimal digits.
std::string NetworkId(std::uint16_t network);

}  // namespace keycentre
