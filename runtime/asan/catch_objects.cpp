// A plug-in for clang 19 that keeps the variable of a catch clause where the MSVC ABI's exception tables can name it.
// AddressSanitizer's pass would move the variable into a frame of its own; the tables then point beside it and the
// handler sees null. Such variables, and no others, are hidden from the pass; accesses to them are not checked.
#include <llvm/ADT/SetVector.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/Module.h>
#include <llvm/IR/PassInstrumentation.h>
#include <llvm/Passes/PassBuilder.h>
#include <llvm/Passes/PassPlugin.h>

namespace
{
using namespace llvm;

constexpr StringRef sanitizer = "AddressSanitizerPass";

SmallSetVector<AllocaInst*, 16> hidden;

// The pass leaves a variable alone whose storage belongs to a call's arguments; these are marked so while it runs.
void Hide(StringRef pass, Any unit)
{
    const auto* const module = any_cast<const Module*>(&unit);
    if (pass != sanitizer || !module)
        return;
    for (const Function& function : **module)
        for (const BasicBlock& block : function)
            for (const Instruction& instruction : block)
                if (const auto* pad = dyn_cast<CatchPadInst>(&instruction); pad && pad->arg_size() > 2)
                    if (auto* object = dyn_cast<AllocaInst>(pad->getArgOperand(2)->stripPointerCasts()))
                        hidden.insert(object);
    for (AllocaInst* object : hidden)
        object->setUsedWithInAlloca(true);
}

void Show(StringRef pass, Any, const PreservedAnalyses&)
{
    if (pass != sanitizer)
        return;
    for (AllocaInst* object : hidden)
    {
        object->setUsedWithInAlloca(false);
        // In front of the frame that the pass made, so that its size stays known when the function is entered.
        object->moveBefore(&*object->getFunction()->getEntryBlock().begin());
    }
    hidden.clear();
}
} // namespace

extern "C" PassPluginLibraryInfo llvmGetPassPluginInfo()
{
    return {LLVM_PLUGIN_API_VERSION, "catch-objects", "1", [](PassBuilder& builder)
            {
                PassInstrumentationCallbacks* const callbacks = builder.getPassInstrumentationCallbacks();
                callbacks->registerBeforeNonSkippedPassCallback(Hide);
                callbacks->registerAfterPassCallback(Show);
            }};
}
