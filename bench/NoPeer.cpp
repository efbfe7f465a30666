// Replaces the peer when its development package is not installed.

#include "Contender.hpp"

namespace bench {

bool HasPeer() { return false; }

std::unique_ptr<Contender> PeerIndexing(const Input&) { return nullptr; }
std::unique_ptr<Contender> PeerDelivery(const Input&, Rejected) { return nullptr; }
std::unique_ptr<Contender> PeerPlaying(const Input&, Index) { return nullptr; }
std::unique_ptr<Contender> PeerSeeking(const Input&) { return nullptr; }
std::unique_ptr<Contender> PeerStepping(const Input&, Steps) { return nullptr; }
std::unique_ptr<Contender> PeerExtraction(const Input&) { return nullptr; }

} // namespace bench
