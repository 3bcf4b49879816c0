// The transfer of a property block. Every length in it is the peer's word.
#include "xdomain/properties_transfer.h"

#include <cstring>

#include "include/trace.h"
#include "xdomain/peer_packet.h"
#include "xdomain/peer_request.h"

namespace {

constexpr std::uint32_t kMostBytes = kXdpPropertiesResponseBytes + 4 * kMostXdpBlockWords;
static_assert(kMostBytes == kControlMostBytes);
// In the length field of a response. A piece has 3 words at least, so a block whose last piece would be shorter cannot
// be read.
constexpr std::uint32_t kLeastPieceLength = 18;
constexpr std::uint32_t kLengthOfEmptyPiece = 15;
// A peer that says its block has no words is asked again, for it may still be building one.
constexpr std::uint32_t kMostEmptyBlocks = 10;
constexpr std::uint32_t kTotalUnknown = 0xFFFFFFFFu;

// One transfer; the request is built once, its offset moves.
struct Transfer {
  const USB4_XDOMAIN* Peer;
  std::uint32_t Request[kXdpPropertiesRequestBytes / 4];
  std::uint32_t* Response;  // kMostBytes
  std::uint32_t* Block;     // Total words, once Total is known and not 0
  std::uint32_t Total;
  std::uint32_t Offset;
  std::uint32_t EmptyBlocks;
};

void BuildRequest(const USB4_CTL* channel, LONG retryCount, Transfer& transfer) {
  const USB4_XDOMAIN* peer = transfer.Peer;
  KivUsb4XdpFillHeader(
      channel, transfer.Request,
      {peer->Route, static_cast<std::uint32_t>(retryCount), USB4_XDP_PROPERTIES_REQUEST, kXdpPropertiesRequestBytes});
  std::memcpy(transfer.Request + kXdpPayloadWord, peer->OwnUuid, kUuidBytes);
  if (peer->PeerUuid != nullptr) std::memcpy(transfer.Request + kXdpPeerUuidWord, peer->PeerUuid, kUuidBytes);
}

KIV_RESULT AskForPiece(USB4_CTL* channel, Transfer& transfer) {
  transfer.Request[kXdpOffsetWord] = XdpOffsetWord::Offset::Of(transfer.Offset);
  const KIV_RESULT result =
      __KivUsb4XdomainRequest(channel, {transfer.Request, kXdpPropertiesRequestBytes, USB4_PDF_XDOMAIN_REQUEST,
                                        transfer.Response, kMostBytes, USB4_PDF_XDOMAIN_RESPONSE, kPeerReplyMs});
  return result != kKivOk ? result : KivUsb4XdpHandleError(transfer.Response);
}

// The first piece says how long the block is.
KIV_RESULT TakeTotal(Transfer& transfer) {
  const std::uint32_t total = XdpOffsetWord::TotalWords::Get(transfer.Response[kXdpOffsetWord]);
  if (total > kMostPropertyWords) return kKivBlockTooLong;
  if (total != 0) {
    transfer.Block = PoolNewArray<std::uint32_t>(total, kReceivedBlockTag);
    if (transfer.Block == nullptr) return kKivNoMemory;
  }
  transfer.Total = total;
  return kKivOk;
}

KIV_RESULT TakePiece(Transfer& transfer) {
  const std::uint32_t* response = transfer.Response;
  const std::uint32_t length = XdpLengthWord::Words::Get(response[kXdpLengthWord]);
  if (length < kLeastPieceLength) return kKivInvalid;
  const std::uint32_t words = length - kLengthOfEmptyPiece;
  if (XdpOffsetWord::Offset::Get(response[kXdpOffsetWord]) != transfer.Offset) return kKivInvalid;
  if (transfer.Total == kTotalUnknown) {
    const KIV_RESULT result = TakeTotal(transfer);
    if (result != kKivOk) return result;
  }
  if (words > kMostXdpBlockWords) return kKivInvalid;
  if (transfer.Total != 0) {
    if (transfer.Offset + words > transfer.Total) return kKivInvalid;
    std::memcpy(transfer.Block + transfer.Offset, response + kXdpBlockWord, 4 * words);
  }
  transfer.Offset += words;
  return kKivOk;
}

// Whether a block of no words may be asked for once more.
bool MayAskAgain(Transfer& transfer) {
  const USB4_XDOMAIN* peer = transfer.Peer;
  if (peer->Removed.IsSet() || peer->Closing.IsSet()) return false;
  return transfer.EmptyBlocks++ < kMostEmptyBlocks;
}

KIV_RESULT RunTransfer(USB4_CTL* channel, Transfer& transfer) {
  for (;;) {
    KIV_RESULT result = AskForPiece(channel, transfer);
    if (result == kKivOk) result = TakePiece(transfer);
    if (result != kKivOk) return result;
    if (transfer.Total == 0) {
      if (!MayAskAgain(transfer)) return kKivInvalid;
    } else if (transfer.Offset >= transfer.Total) {
      return static_cast<KIV_RESULT>(transfer.Total);
    }
  }
}

}  // namespace

KIV_RESULT KivUsb4XdpPropertiesRequest(USB4_CTL* channel, const USB4_XDOMAIN* peer, LONG retryCount,
                                       USB4_PEER_BLOCK* block) {
  const ReceivedBlock response(kMostBytes / 4);
  if (!response) return kKivNoMemory;
  Transfer transfer = {.Peer = peer, .Response = response.Get(), .Total = kTotalUnknown};
  BuildRequest(channel, retryCount, transfer);
  const KIV_RESULT result = RunTransfer(channel, transfer);
  if (result < 0) {
    TraceError("property block not read", "name", peer->Info.Name, "result", AsResult(result), "words",
               transfer.Offset);
    PoolDeleteArray(transfer.Block, kReceivedBlockTag);
    return result;
  }
  *block = {transfer.Block, response[kXdpGenerationWord]};
  return result;
}
