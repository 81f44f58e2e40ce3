#include "Qon/include/adjacency/QonAdjTypesCommon.h"

namespace Qon {

using Tunnel::TunnelTable;

namespace {

template< class P, TunnelTable::Type kind >
class EncapWrapperOf final : public EncapWrapper {
 public:
   EncapWrapperOf() : EncapWrapper( kind ) {}
   ~EncapWrapperOf() override { dedupLeave(); }
   U64 hash() const override { return Kiv::hashCombine( U64( kind ), payload.hash() ); }
   Velto::Ptr< EncapWrapper > copy() const override {
      auto fresh = Velto::make< EncapWrapperOf >();
      fresh->payload = payload;
      return fresh;
   }
   P payload;

 private:
   std::strong_ordering comparePayload( const EncapWrapper & sameKind ) const override {
      return payload <=> static_cast< const EncapWrapperOf & >( sameKind ).payload;
   }
};

/** What `wrapper` holds if it is of that kind, else the kind's empty default. */
template< class P, TunnelTable::Type kind >
const P &
payloadOrDefault( const EncapWrapper * wrapper ) {
   static const P none;
   return wrapper && wrapper->type() == kind
                ? static_cast< const EncapWrapperOf< P, kind > * >( wrapper )->payload
                : none;
}

} // namespace

std::strong_ordering
EncapWrapper::compare( const EncapWrapper & other ) const {
   return type_ == other.type_ ? comparePayload( other ) : type_ <=> other.type_;
}

#define QON_ENCAP_DEFINE_( text, x, Payload, kind, factory )                                       \
   const Payload & EncapInfo::x() const {                                                          \
      checkType( TunnelTable::kind(), __LINE__, __PRETTY_FUNCTION__ );                             \
      return payloadOrDefault< Payload, TunnelTable::kind() >( wrapper_.ptr() );                   \
   }                                                                                               \
   void EncapInfo::x##Is( const Payload & payload ) {                                              \
      checkType( TunnelTable::kind(), __LINE__, __PRETTY_FUNCTION__ );                             \
      const Payload kept( payload ); /* it may lie in the wrapper */                               \
      maybeCopyWrapper();                                                                          \
      using Wrapper = EncapWrapperOf< Payload, TunnelTable::kind() >;                              \
      static_cast< Wrapper & >( *wrapper_ ).payload = kept;                                        \
   }                                                                                               \
   Velto::Ptr< EncapWrapper > EncapInfo::factory() {                                               \
      return Velto::make< EncapWrapperOf< Payload, TunnelTable::kind() > >();                      \
   }
QON_ENCAPS( QON_ENCAP_DEFINE_ )
#undef QON_ENCAP_DEFINE_

EncapInfo::EncapInfo( const String & text ) {
   for ( Kiv::ValueReader r( "Qon::EncapInfo", text ); r.next(); ) {
#define QON_ENCAP_READ_( text, x, Payload, kind, factory )                                         \
   if ( r.is( #text ) ) {                                                                          \
      if ( const auto payload = Kiv::fromText< Payload >( r.value() ); payload != Payload() ) {    \
         if ( wrapper_ ) {                                                                         \
            Kiv::textRefused( "one encapsulation", r.name() );                                     \
         }                                                                                         \
         wrapper_ = factory();                                                                     \
         x##Is( payload );                                                                         \
      }                                                                                            \
      continue;                                                                                    \
   }
      QON_ENCAPS( QON_ENCAP_READ_ )
#undef QON_ENCAP_READ_
      r.refuseField();
   }
}

void
EncapInfo::checkType( Type wanted, int line, const char * function ) const {
   if ( encapType() != wanted ) {
      const String text = "EncapInfo type is " + Kiv::toText( encapType() ) + ", not " +
                          Kiv::toText( wanted ); // fixed text: its begin
      Velto::assertFail( text.c_str(), "QonAdjTypesCommon", line, function );
   }
}

void
EncapInfo::maybeCopyWrapper() {
   KivStash::makeSole( wrapper_, []( const EncapWrapper & shared ) { return shared.copy(); } );
   VELTO_ASSERT( wrapper_->useCount() == 1 );
}

void
EncapInfo::dedup( const EncapDedupTable & table ) {
   if ( wrapper_ && !wrapper_->interned() ) {
      wrapper_ = table.intern( wrapper_, wrapper_->hash() );
   }
}

std::strong_ordering
EncapInfo::operator<=>( const EncapInfo & other ) const {
   if ( wrapper_ == other.wrapper_ || !wrapper_ || !other.wrapper_ ) {
      return encapType() <=> other.encapType();
   }
   return wrapper_->compare( *other.wrapper_ );
}

U64
EncapInfo::hash() const {
   return wrapper_ ? wrapper_->hash() : 0;
}

String
EncapInfo::stringValue() const {
   Kiv::ValueWriter w( "Qon::EncapInfo" );
#define QON_ENCAP_WRITE_( text, x, Payload, kind, factory )                                        \
   w.field( #text, payloadOrDefault< Payload, TunnelTable::kind() >( wrapper_.ptr() ) );
   QON_ENCAPS( QON_ENCAP_WRITE_ )
#undef QON_ENCAP_WRITE_
   return w.text();
}

bool
isAdjErrorStateTransient( AdjErrorStates states ) {
   AdjErrorStates permanent;
   permanent.invalidRouteTypeIs( true );
   permanent.fecHierarchyContainsCycleIs( true );
   permanent.expandedL2AdjHasFailedChildrenIs( true );
   permanent.lowerLevelL2AdjInstallFailedIs( true );
   return !( states & permanent );
}

} // namespace Qon
