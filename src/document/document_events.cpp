#include "document/document_events.h"

namespace tavora {
namespace {
const DocumentObserver kSilent;
const DocumentObserver* g_observer = &kSilent;
}  // namespace

void SetDocumentObserver(const DocumentObserver* observer) {
  g_observer = observer ? observer : &kSilent;
}

const DocumentObserver& CurrentDocumentObserver() { return *g_observer; }

}  // namespace tavora
