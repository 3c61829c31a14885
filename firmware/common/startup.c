/* Start-up code of the simulated Cortex-M4 target: vector table, copying
 * .data, zeroing .bss, enabling the FPU, then main(). */
#include <stdint.h>

extern uint32_t _estack;
extern uint32_t _sidata, _sdata, _edata, _sbss, _ebss, _sdemo, _edemo;
int main(void);

void Reset_Handler(void);
void Default_Handler(void);
void SysTick_Handler(void);

/* A board port that uses SysTick defines its own handler. */
__attribute__((weak)) void SysTick_Handler(void) {}

__attribute__((noreturn)) void Default_Handler(void)
{
    for (;;) {
    }
}

__attribute__((section(".isr_vector"), used)) static void (*const vectors[16])(void) = {
    (void (*)(void))(&_estack), Reset_Handler, Default_Handler, Default_Handler,
    Default_Handler, Default_Handler, Default_Handler, 0, 0, 0, 0,
    Default_Handler, Default_Handler, 0, Default_Handler, SysTick_Handler,
};

static void zero(uint32_t* p, uint32_t* end)
{
    while (p < end) {
        *p++ = 0;
    }
}

__attribute__((noreturn)) void Reset_Handler(void)
{
    uint32_t* src = &_sidata;
    for (uint32_t* dst = &_sdata; dst < &_edata;) {
        *dst++ = *src++;
    }
    zero(&_sbss, &_ebss);
    zero(&_sdemo, &_edemo);
    /* CPACR: full access to CP10 and CP11 (the FPU). */
    *(volatile uint32_t*)0xE000ED88u |= 0xFu << 20;
    __asm volatile("dsb\n isb" ::: "memory");
    main();
    for (;;) {
    }
}
