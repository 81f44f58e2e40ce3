#pragma once
// How many changes of entities were delivered, by type, while one of these lives.
//
// A change that nobody watches is not delivered, and not counted.

#include "platform/Kiv/DenseMap.h"
#include "platform/Kiv/TypeData.h"

namespace Kiv {

class ChangeCounts {
 public:
   ChangeCounts();
   ~ChangeCounts();
   ChangeCounts( const ChangeCounts & ) = delete;
   ChangeCounts & operator=( const ChangeCounts & ) = delete;

   const DenseMap< const TypeData *, U64 > & byType() const { return byType_; }

 private:
   friend class Entity;
   DenseMap< const TypeData *, U64 > byType_;
   ChangeCounts * outer_;
};

} // namespace Kiv
