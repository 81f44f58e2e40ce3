#include "platform/Velto/Node.h"

namespace Velto {

bool severalThreads = false;

void
Node::kivDie() {
   ++count_; // a handler that counts this object on its way out must not end it twice
   hasNotificationActiveIs( false );
   kivDoZombieReactors();
   delete this;
}

} // namespace Velto
