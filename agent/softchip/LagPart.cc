#include "agent/softchip/LagPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

/** Tells its part of its life. */
class LagPart::Programmer : public SoftLagProgrammer {
 public:
   Programmer( LagPart & part, const Velto::Ptr< const Hardware::Lag::Config > & config,
               const Velto::Ptr< Hardware::Lag::Status > & status )
       : SoftLagProgrammer( config, status, part.table_ ), part_( part ) {
      VELTO_ASSERT( !part_.programmer_ );
      part_.programmer_ = this;
      latencyIs( part_.latency_ );
   }
   ~Programmer() override { part_.programmer_ = nullptr; }

 private:
   LagPart & part_;
};

LagPart::~LagPart() = default;

Velto::Ptr< Velto::Node >
LagPart::makeProgrammer( const Velto::Ptr< const Hardware::Lag::Config > & config,
                         const Velto::Ptr< Hardware::Lag::Status > & status ) {
   auto programmer = Qon::smIs< Programmer >( *this, config, status );
   programmer->initializedIs( true );
   return programmer;
}

void
LagPart::latencyIs( Kiv::Seconds latency ) {
   latency_ = latency;
   if ( programmer_ ) {
      programmer_->latencyIs( latency );
   }
}

std::optional< QonChip::HeldGroups >
LagPart::groups() const {
   QonChip::HeldGroups held;
   for ( auto && [lag, group] : table_.groups() ) {
      for ( auto && [port, member] : group.members ) {
         held[lag][port] = member;
      }
   }
   return held;
}

void
addLagPart( Chip & chip ) {
   chip.addPart< LagPart >();
}

} // namespace SoftChip
