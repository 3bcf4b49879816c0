// Taking a peer host away.
#include "topology/upcalls.h"

// Nothing attaches a peer to an adapter yet.
void KivUsb4XdomainRemove(USB4_XDOMAIN*) {}
