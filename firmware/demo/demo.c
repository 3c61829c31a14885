/* Demo firmware: signals worth watching, all computed from one tick counter
 * that counts milliseconds of target time, so that a host can check every
 * sample and spot a lost or doubled one.
 *
 * With t = g_tick_ms after an update (the update for tick t happens at target
 * time t * 1000 us):
 *   g_sine         = 100 * sinf(2*pi * t / 1000)      float, 1 Hz
 *   g_cosine       =  50 * cosf(2*pi * t / 250)       float, 4 Hz
 *   g_sawtooth     = (int16_t)(t % 200) - 100         -100 .. 99
 *   g_square       = (t / 500) % 2                    bool, 1 Hz
 *   g_state        = (t / 250) % 4                    IDLE, STARTING, RUNNING, STOPPING
 *   g_counter64    = t * 0x100000001                  both 32-bit halves equal t
 *   g_motor.speed_rpm        = (t % 1000) * 0.5f
 *   g_motor.sensors.current_ma = (int16_t)(t % 100)
 *   g_motor.sensors.temp_c     = 20 + (t / 1000) % 50
 *   g_motor.enabled  = (t / 100) % 2   (1-bit field)
 *   g_motor.mode     = (t / 100) % 8   (3-bit field)
 *   g_motor.fault    = (t % 1000) < 10 (1-bit field)
 *   g_channels[i].raw    = (t + 100 * i) % 4096
 *   g_channels[i].scaled = g_channels[i].raw * 0.001f
 * Every tick, up-channel 0 "Plotvik_t4f4f4i2u1" gets one 15-byte record:
 * uint32 time stamp t * 1000 (us), float g_sine, float g_cosine,
 * int16 g_sawtooth, uint8 g_state.
 *
 * The tick comes from the board (boards/): the simulated target's timer, or
 * SysTick on a real Cortex-M4 board.
 */
#include <math.h>
#include <stdbool.h>
#include <stdint.h>
#include <string.h>

#include "board.h"
#include "qtx.h"

#define DEMO_VAR __attribute__((section(".demo_vars")))

typedef enum demo_state { STATE_IDLE, STATE_STARTING, STATE_RUNNING, STATE_STOPPING } demo_state;

typedef struct motor_sensors {
    int16_t current_ma;
    uint8_t temp_c;
} motor_sensors;

typedef struct motor {
    float speed_rpm;
    motor_sensors sensors;
    unsigned enabled : 1;
    unsigned mode : 3;
    unsigned fault : 1;
} motor;

typedef struct channel_sample {
    uint16_t raw;
    float scaled;
} channel_sample;

/* Order and types matter: the demo projects list these addresses and type
 * texts. Plain (not volatile) types, so the host shows them as "float" and
 * not as "volatile float"; the barrier in main() keeps every store. */
uint32_t g_tick_ms DEMO_VAR;
float g_sine DEMO_VAR;
float g_cosine DEMO_VAR;
int16_t g_sawtooth DEMO_VAR;
bool g_square DEMO_VAR;
demo_state g_state DEMO_VAR;
uint64_t g_counter64 DEMO_VAR;
motor g_motor DEMO_VAR;
channel_sample g_channels[4] DEMO_VAR;
uint32_t g_qtx_dropped DEMO_VAR;

static uint8_t qtx_buffer[4096];

static const float two_pi = 6.28318530718f;

static void update(uint32_t t)
{
    g_sine = 100.0f * sinf(two_pi * (float)(t % 1000u) / 1000.0f);
    g_cosine = 50.0f * cosf(two_pi * (float)(t % 250u) / 250.0f);
    g_sawtooth = (int16_t)((int32_t)(t % 200u) - 100);
    g_square = ((t / 500u) % 2u) != 0;
    g_state = (demo_state)((t / 250u) % 4u);
    g_counter64 = (uint64_t)t * 0x100000001ull;
    g_motor.speed_rpm = (float)(t % 1000u) * 0.5f;
    g_motor.sensors.current_ma = (int16_t)(t % 100u);
    g_motor.sensors.temp_c = (uint8_t)(20u + (t / 1000u) % 50u);
    g_motor.enabled = (t / 100u) % 2u;
    g_motor.mode = (t / 100u) % 8u;
    g_motor.fault = (t % 1000u) < 10u;
    for (uint32_t i = 0; i < 4u; ++i) {
        const uint16_t raw = (uint16_t)((t + 100u * i) % 4096u);
        g_channels[i].raw = raw;
        g_channels[i].scaled = (float)raw * 0.001f;
    }
    g_tick_ms = t;
}

/* The probe reads the variables behind the compiler's back: force every
 * store of this tick out to memory before the next wait. */
static inline void publish(void)
{
    __asm__ volatile("" ::: "memory");
}

static void send_record(uint32_t t)
{
    uint8_t rec[15];
    const uint32_t stamp = t * 1000u;
    const float s = g_sine;
    const float c = g_cosine;
    const int16_t saw = g_sawtooth;
    memcpy(rec, &stamp, 4);
    memcpy(rec + 4, &s, 4);
    memcpy(rec + 8, &c, 4);
    memcpy(rec + 12, &saw, 2);
    rec[14] = (uint8_t)g_state;
    qtx_write(0, rec, sizeof rec);
    g_qtx_dropped = qtx_dropped(0);
}

int main(void)
{
    board_init();
    qtx_init();
    qtx_config_up(0, "Plotvik_t4f4f4i2u1", qtx_buffer, sizeof qtx_buffer);
    uint32_t t = 0;
    update(t);
    send_record(t);
    publish();
    for (;;) {
        /* Catch up tick by tick, so that no tick is skipped even if an update
         * ever took longer than a millisecond. */
        board_wait_tick(t + 1u);
        ++t;
        update(t);
        send_record(t);
        publish();
    }
}
